#include <gtest/gtest.h>

#include "Utils/VersionComparison.h"

namespace installer {
namespace {

constexpr auto ascending = ComparisonResult::ascending;
constexpr auto same = ComparisonResult::same;
constexpr auto descending = ComparisonResult::descending;

TEST(VersionComparison, OrdersComponentsAsNumbersAsFarAsBothSidesHaveThem) {
  const struct {
    const char* version;
    const char* other;
    ComparisonResult result;
  } rows[] = {
      {"1.10", "1.9", descending},
      {"1.9", "1.10", ascending},
      {"1.2", "1.2.0", same},
      {"1.2", "1.2.1", same},
      {"1.2.1", "1.2", same},
      {"1", "1.9.9", same},
      {"2", "1.9", descending},
      {"", "0", same},
      {"", "", same},
      {"", "1", ascending},
      {"1", "", descending},
      {"1.2-b", "1.1", ascending},
      {"1.-1", "1.0", ascending},
      {"1..2", "1.0.2", same},
      {"1..2", "1.1", ascending},
      {".", "0.0", same},
      {"007", "7", same},
      {"+4", "4", same},
      {"-3", "0", ascending},
      {"2b", "0", same},
      {"x1", "0", same},
      {" 1", "0", same},
      {"1 ", "0", same},
      {"+", "0", same},
      {"-", "0", same},
      {"+-1", "0", same},
      {"-+1", "0", same},
      {"++1", "0", same},
      {"99999999999999999999", "0", same},
      {"9223372036854775807", "9223372036854775806", descending},
      {"9223372036854775808", "0", same},
      {"-9223372036854775808", "-9223372036854775807", ascending},
      {"\xd9\xa1", "0", same},  // an Arabic-Indic digit one
      {"0x10", "0", same},
      {"1e3", "0", same},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(compareVersion(row.version, row.other), row.result)
        << '"' << row.version << "\" against \"" << row.other << '"';
  }
}

TEST(VersionComparison, HasThePlatformsNumbers) {
  EXPECT_EQ(static_cast<int>(ascending), -1);
  EXPECT_EQ(static_cast<int>(same), 0);
  EXPECT_EQ(static_cast<int>(descending), 1);
}

}  // namespace
}  // namespace installer
