#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Models/AppInfo.h"

namespace installer {
namespace {

using ::testing::ElementsAre;

TEST(AppIdentifier, BeginsWithItsFirstFourCasesInCatalogOrder) {
  std::vector<std::string_view> names;
  for (const auto each : AppIdentifiers::allCases) names.push_back(rawValue(each));
  names.resize(4);
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

TEST(IdentifierList, NamesAppsInTheirOrder) {
  AppInfo rulo;
  rulo.id = AppIdentifier::rulo;
  AppInfo brenna;
  brenna.id = AppIdentifier::brenna;
  EXPECT_EQ(identifierList({}), "");
  EXPECT_EQ(identifierList({rulo}), "rulo");
  EXPECT_EQ(identifierList({rulo, brenna, rulo}), "rulo, brenna, rulo");
}

}  // namespace
}  // namespace installer
