#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/AppList.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using enum AppIdentifier;
using Apps = std::vector<AppIdentifier>;
using Parsed = Expected<Apps, std::string>;

Parsed unknown(std::string piece) {
  return std::unexpected(std::move(piece));
}

class AppListTest : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;
};

TEST_F(AppListTest, ReadsAListOfApps) {
  const std::vector<std::pair<std::string, Parsed>> rows{
      {"", Apps{}},
      {",", Apps{}},
      {",,,", Apps{}},
      {"brenna", Apps{brenna}},
      {"tolvi,brenna", Apps{tolvi, brenna}},
      {"brenna,brenna", Apps{brenna, brenna}},
      {" Brenna\t,, RULO ,", Apps{brenna, rulo}},
      {"galdivane", Apps{galdivane}},
      {"brenna,\u00A0tolvi\u3000\u2003", Apps{brenna, tolvi}},
      {"\u00A0", unknown("")},
      {"bren\u00A0na", unknown("bren\u00A0na")},
      {"\xA0"
       "brenna",
       unknown("\xA0"
               "brenna")},
      {"\u2028brenna", unknown("\u2028brenna")},
      {" brenna\r\n", unknown("brenna\r\n")},
      {std::string(100'000, ' ') + "rulo" + std::string(100'000, '\t'), Apps{rulo}},
      {" ", unknown("")},
      {"brenna, ,tolvi", unknown("")},
      {"brenna\n", unknown("brenna\n")},
      {"\vbrenna", unknown("\vbrenna")},
      {" MOZI ", unknown("mozi")},
      {"brenna;tolvi", unknown("brenna;tolvi")},
      {"brenna,mozi,tulo", unknown("mozi")},
      {"bren na", unknown("bren na")},
      {"--strict", unknown("--strict")},
  };
  for (const auto& [value, apps] : rows) EXPECT_EQ(parseApps(value), apps) << value.substr(0, 60);
}

TEST_F(AppListTest, TakesAnExcludedAppForUnknown) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(parseApps("brenna,rulo"), unknown("rulo"));
  EXPECT_THAT(availableAppIds(), ::testing::Not(::testing::AnyOf("", ::testing::HasSubstr("rulo"))));
}

TEST_F(AppListTest, NamesTheAppsInCatalogOrder) {
  EXPECT_EQ(availableAppIds(), identifierList(KeloAppProvider::shared().allApps()));
}

}  // namespace
}  // namespace installer
