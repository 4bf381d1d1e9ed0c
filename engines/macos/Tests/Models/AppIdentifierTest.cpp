#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Models/AppInfo.h"

namespace installer {
namespace {

using ::testing::ElementsAre;

TEST(AppIdentifier, HasFourCasesInCatalogOrder) {
  std::vector<std::string_view> names;
  for (const auto each : AppIdentifiers::allCases) names.push_back(rawValue(each));
  EXPECT_THAT(names, ElementsAre("brenna", "tolvi", "rulo", "galdivane"));
}

TEST(AppIdentifier, IsFoundAgainByItsRawValue) {
  for (const auto each : AppIdentifiers::allCases) {
    EXPECT_EQ(AppIdentifiers::fromRawValue(rawValue(each)), each) << rawValue(each);
  }
}

TEST(AppIdentifier, IsMatchedExactlyAndCaseSensitively) {
  for (const auto* const text : {"", "Brenna", "BRENNA", " brenna", "brenna ", "brenn", "brennaa", "galdi"}) {
    EXPECT_EQ(AppIdentifiers::fromRawValue(text), std::nullopt) << '"' << text << '"';
  }
}

}  // namespace
}  // namespace installer
