#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AppList.h"
#include "Support/SimulatedMachine.h"

namespace installer {
namespace {

using enum AppIdentifier;
using Apps = std::vector<AppIdentifier>;
using Parsed = std::optional<Apps>;

class AppListTest : public ::testing::Test {
 protected:
  testing::SimulatedMachine machine;
};

TEST_F(AppListTest, ReadsAListOfApps) {
  const std::vector<std::pair<std::optional<std::string>, Parsed>> rows{
      {std::nullopt, Parsed{Apps{}}},
      {"", Parsed{Apps{}}},
      {",", Parsed{Apps{}}},
      {",,,", Parsed{Apps{}}},
      {"brenna", Parsed{Apps{brenna}}},
      {"tolvi,brenna", Parsed{Apps{tolvi, brenna}}},
      {"brenna,brenna", Parsed{Apps{brenna, brenna}}},
      {" Brenna\t,, RULO ,", Parsed{Apps{brenna, rulo}}},
      {"galdivane", Parsed{Apps{galdivane}}},
      {"brenna,\u00A0tolvi\u3000\u2003", Parsed{Apps{brenna, tolvi}}},
      {"\u00A0", std::nullopt},
      {"bren\u00A0na", std::nullopt},
      {"\xA0"
       "brenna",
       std::nullopt},
      {"\u2028brenna", std::nullopt},
      {"brenna\r\n", std::nullopt},
      {std::string(100'000, ' ') + "rulo" + std::string(100'000, '\t'), Parsed{Apps{rulo}}},
      {" ", std::nullopt},
      {"brenna, ,tolvi", std::nullopt},
      {"brenna\n", std::nullopt},
      {"mozi", std::nullopt},
      {"brenna;tolvi", std::nullopt},
      {"brenna,mozi", std::nullopt},
      {"bren na", std::nullopt},
      {"--strict", std::nullopt},
  };
  for (const auto& [value, apps] : rows)
    EXPECT_EQ(parseApps(value), apps) << value.value_or("(absent)").substr(0, 60);
}

TEST_F(AppListTest, TakesAnExcludedAppForUnknown) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(parseApps("brenna,rulo"), std::nullopt);
  EXPECT_EQ(availableAppIds(), "brenna, tolvi, galdivane");
}

TEST_F(AppListTest, NamesTheAppsInCatalogOrder) {
  EXPECT_EQ(availableAppIds(), "brenna, tolvi, rulo, galdivane");
}

}  // namespace
}  // namespace installer
