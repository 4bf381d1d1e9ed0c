#include <gtest/gtest.h>

#include "Utils/VersionComparison.h"

namespace installer {
namespace {

constexpr auto kAscending = ComparisonResult::ascending;
constexpr auto kSame = ComparisonResult::same;
constexpr auto kDescending = ComparisonResult::descending;

TEST(VersionComparison, OrdersComponentsAsNumbersAsFarAsBothSidesHaveThem) {
  const struct {
    const char* version;
    const char* other;
    ComparisonResult result;
  } rows[] = {
      {"1.10", "1.9", kDescending},
      {"1.9", "1.10", kAscending},
      {"1.2", "1.2.0", kSame},
      {"1.2", "1.2.1", kSame},
      {"1.2.1", "1.2", kSame},
      {"1", "1.9.9", kSame},
      {"2", "1.9", kDescending},
      {"", "0", kSame},
      {"", "", kSame},
      {"", "1", kAscending},
      {"1", "", kDescending},
      {"1.2-b", "1.1", kAscending},
      {"1.-1", "1.0", kAscending},
      {"1..2", "1.0.2", kSame},
      {"1..2", "1.1", kAscending},
      {".", "0.0", kSame},
      {"007", "7", kSame},
      {"+4", "4", kSame},
      {"-3", "0", kAscending},
      {"2b", "0", kSame},
      {"x1", "0", kSame},
      {" 1", "0", kSame},
      {"1 ", "0", kSame},
      {"+", "0", kSame},
      {"-", "0", kSame},
      {"+-1", "0", kSame},
      {"-+1", "0", kSame},
      {"++1", "0", kSame},
      {"99999999999999999999", "0", kSame},
      {"9223372036854775807", "9223372036854775806", kDescending},
      {"9223372036854775808", "0", kSame},
      {"-9223372036854775808", "-9223372036854775807", kAscending},
      {"\xd9\xa1", "0", kSame},  // an Arabic-Indic digit one
      {"0x10", "0", kSame},
      {"1e3", "0", kSame},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(compareVersion(row.version, row.other), row.result)
        << '"' << row.version << "\" against \"" << row.other << '"';
  }
}

TEST(VersionComparison, HasThePlatformsNumbers) {
  EXPECT_EQ(static_cast<int>(kAscending), -1);
  EXPECT_EQ(static_cast<int>(kSame), 0);
  EXPECT_EQ(static_cast<int>(kDescending), 1);
}

}  // namespace
}  // namespace installer
