#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Models/AppConstants.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class Catalog : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;

  static const AppInfo& row(AppIdentifier identifier) {
    const auto* const app = KeloAppProvider::shared().app(identifier);
    EXPECT_NE(app, nullptr) << rawValue(identifier);
    static const AppInfo nothing;
    return app == nullptr ? nothing : *app;
  }
  static std::vector<AppIdentifier> identifiers() {
    std::vector<AppIdentifier> list;
    for (const auto& app : KeloAppProvider::shared().allApps()) list.push_back(app.id);
    return list;
  }
};

Json described(const AppInfo& app) {
  return {{"id", rawValue(app.id)},
          {"displayName", app.displayName},
          {"appBundleName", app.appBundleName},
          {"iconName", app.iconName},
          {"installerBundleIdentifier", app.installerBundleIdentifier},
          {"otherBundleIdentifiers", app.otherBundleIdentifiers},
          {"cdnFormat", app.cdnFormat},
          {"cdnArch", app.cdnArch == CDNArchScope::perArch ? "perArch" : "universal"},
          {"tempFileName", app.tempFileName},
          {"descriptionCode", app.descriptionCode},
          {"webUrl", app.webURL.value().absoluteString()},
          {"sizeBytes", app.sizeBytes.value()},
          {"expansionRatio", app.expansionRatio}};
}

TEST_F(Catalog, IsWhatShellAuthorsAreTold) {
  std::ifstream file{KELO_CATALOG_FILE};
  const auto written = Json::parse(file);
  auto built = Json::array();
  for (const auto& app : KeloAppProvider::shared().allApps()) built.push_back(described(app));
  EXPECT_EQ(written, (Json{{"apps", built}})) << Json::diff(written["apps"], built).dump(2);
}

TEST_F(Catalog, HasItsBuiltInRowsWithoutAConfiguration) {
  EXPECT_THAT(identifiers(), ElementsAreArray(AppIdentifiers::allCases));
  EXPECT_EQ(row(AppIdentifier::brenna).appBundleName, "Brenna.app");
  EXPECT_EQ(row(AppIdentifier::tolvi).installerBundleIdentifier, "com.kelo.ktolvimac");
  EXPECT_THAT(row(AppIdentifier::tolvi).otherBundleIdentifiers, ElementsAre("org.fed.tolvi.mac"));
  EXPECT_THAT(row(AppIdentifier::galdivane).otherBundleIdentifiers, IsEmpty());
  EXPECT_EQ(row(AppIdentifier::galdivane).sizeBytes, 210LL << 20U);
  EXPECT_EQ(row(AppIdentifier::tolvi).sizeBytes, 280LL << 20U);
  EXPECT_THAT(mac.logLines("KeloAppProvider"), IsEmpty());
}

TEST_F(Catalog, DropsAnExcludedApp) {
  mac.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  std::vector<AppIdentifier> others{AppIdentifiers::allCases.begin(), AppIdentifiers::allCases.end()};
  std::erase(others, AppIdentifier::rulo);
  EXPECT_EQ(identifiers(), others);
  EXPECT_EQ(KeloAppProvider::shared().app(AppIdentifier::rulo), nullptr);
  EXPECT_EQ(mac.logLines("KeloAppProvider"),
            Lines{"INFO KeloAppProvider: excluded by installer_config.json: rulo"});
}

TEST_F(Catalog, CanBeEmpty) {
  auto excluded = Json::object();
  std::vector<std::string_view> names;
  for (const auto each : AppIdentifiers::allCases) {
    excluded[rawValue(each)] = {{"primaryBundleIdentifier", "x"}, {"included", false}};
    names.push_back(rawValue(each));
  }
  mac.setConfiguration(Json{{"apps", excluded}}.dump());
  EXPECT_THAT(KeloAppProvider::shared().allApps(), IsEmpty());
  EXPECT_EQ(mac.logLines("KeloAppProvider"),
            Lines{fmt::format("INFO KeloAppProvider: excluded by installer_config.json: {}",
                              fmt::join(names, ", "))});
}

TEST_F(Catalog, TakesConfiguredIdentifiersWhole) {
  mac.setConfiguration(R"({"apps": {"tolvi": {"primaryBundleIdentifier": "com.kelo.new"},
                                    "galdivane": {"primaryBundleIdentifier": "com.kelo.g",
                                                  "otherBundleIdentifiers": ["x", "y"]}}})");
  EXPECT_EQ(row(AppIdentifier::tolvi).installerBundleIdentifier, "com.kelo.new");
  EXPECT_THAT(row(AppIdentifier::tolvi).otherBundleIdentifiers, IsEmpty());
  EXPECT_THAT(row(AppIdentifier::galdivane).otherBundleIdentifiers, ElementsAre("x", "y"));
  EXPECT_EQ(row(AppIdentifier::brenna).installerBundleIdentifier, "com.kelo.brenna.mac");
}

TEST_F(Catalog, IgnoresConfiguredStrangers) {
  mac.setConfiguration(
      R"({"apps": {"stranger": {"primaryBundleIdentifier": "s", "included": false},
                   "Rulo": {"primaryBundleIdentifier": "s", "included": false}}})");
  EXPECT_EQ(KeloAppProvider::shared().allApps().size(), AppIdentifiers::allCases.size());
  EXPECT_THAT(mac.logLines("KeloAppProvider"), IsEmpty());
}

TEST_F(Catalog, NamesPlacesByFileAndIdentifier) {
  EXPECT_EQ(row(AppIdentifier::galdivane).tempFilePath(),
            mac.paths.temporaryDirectory + "/galdi_installer.dmg");
  EXPECT_EQ(row(AppIdentifier::galdivane).cdnService(), "galdivane");
}

TEST_F(Catalog, IsMadeOnce) {
  const auto* const first = &KeloAppProvider::shared();
  mac.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(&KeloAppProvider::shared(), first);
  EXPECT_EQ(first->allApps().size(), AppIdentifiers::allCases.size());
}

TEST(AppConstants, HasNowhereToReportTo) {
  EXPECT_FALSE(AppConstants::telemetryEnabled);
  EXPECT_EQ(AppConstants::API::reportURLString, "");
  EXPECT_EQ(AppConstants::API::reportURL(), std::nullopt);
}

}  // namespace
}  // namespace installer
