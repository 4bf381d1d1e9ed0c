#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"
#include "Utils/UpdateChecker.h"

namespace installer {
namespace {

AppUpdateStatus installedApp(std::optional<std::string> installed, std::optional<std::string> latest) {
  AppUpdateStatus status;
  status.isInstalled = true;
  status.installedVersion = std::move(installed);
  status.latestVersion = std::move(latest);
  return status;
}

TEST(AppUpdateStatus, OffersAnUpdateToAnOlderInstalledCopyOnly) {
  EXPECT_TRUE(installedApp("1.9", "1.10").updateAvailable());
  EXPECT_FALSE(installedApp("1.10", "1.9").updateAvailable());
  EXPECT_FALSE(installedApp("1.2", "1.2.1").updateAvailable());
  EXPECT_FALSE(installedApp(std::nullopt, "2").updateAvailable());
  EXPECT_FALSE(installedApp("1", std::nullopt).updateAvailable());
}

TEST(AppUpdateStatus, OffersNothingForAnAppThatIsNotInstalled) {
  auto status = installedApp("1", "2");
  status.isInstalled = false;
  EXPECT_FALSE(status.updateAvailable());
  EXPECT_FALSE(status.updateAvailable("9"));
}

TEST(AppUpdateStatus, ComparesWithAGivenVersion) {
  EXPECT_TRUE(installedApp("1", "1").updateAvailable("2"));
  EXPECT_FALSE(installedApp("1", "2").updateAvailable(std::nullopt));
}

TEST(AppUpdateStatus, TellsWhereACopyCameFrom) {
  auto status = installedApp("1", "2");
  EXPECT_EQ(status.source(), CopySource::direct);
  status.isAppStore = true;
  EXPECT_EQ(status.source(), CopySource::appStore);
  EXPECT_TRUE(status.updateAvailable());
  status.isInstalled = false;
  EXPECT_EQ(status.source(), std::nullopt);
}

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Updates : public ::testing::Test {
 protected:
  Updates() {
    machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["kelo.example"],
      "cdn": {"domains": {"us": "https://cdn.kelo.example"}}})");
    for (const auto& app : KeloAppProvider::shared().allApps()) {
      meta(app, "arm64").answers(404);
      meta(app, "universal").answers(404);
    }
  }

  static const std::vector<AppInfo>& apps() { return KeloAppProvider::shared().allApps(); }
  static const AppInfo& app(AppIdentifier id) { return *KeloAppProvider::shared().app(id); }

  test::ServerResource& meta(const AppInfo& app, const std::string& arch) {
    return machine.network.on("https://cdn.kelo.example/desksuite/apps/default/" + app.cdnService() +
                              "/mac/" + arch + "/dmg/latest/meta.json");
  }
  test::ServerResource& meta(const AppInfo& app) {
    return meta(app, app.cdnArch == CDNArchScope::universal ? "universal" : "arm64");
  }

  UpdateSweep sweep(const std::vector<AppInfo>& apps, bool network = true) {
    UpdateSweep result;
    machine.dispatch.runOnWorker([&] { result = UpdateChecker::sweep(apps, network); });
    return result;
  }

  test::SimulatedMachine machine;
};

TEST_F(Updates, TellsWhatIsInstalledAndWhatIsOffered) {
  machine.addRegisteredApp("/Applications/Brenna.app",
                           {.identifier = "com.kelo.brenna.mac", .version = "1.0"});
  meta(app(AppIdentifier::brenna)).answers(200, R"({"version": "1.1", "size": 700})");
  meta(app(AppIdentifier::tolvi)).answers(200, R"({"version": "5"})");
  meta(app(AppIdentifier::rulo)).answers(200, R"({"size": 7})");

  const auto result = sweep(apps());
  EXPECT_FALSE(result.allPackagesMissing);
  ASSERT_EQ(result.statuses.size(), AppIdentifiers::allCases.size());
  const auto& brenna = result.statuses[0];
  EXPECT_EQ(brenna.app.id, AppIdentifier::brenna);
  EXPECT_EQ(brenna.installedVersion, "1.0");
  EXPECT_EQ(brenna.installedPath, "/Applications/Brenna.app");
  EXPECT_EQ(brenna.latestVersion, "1.1");
  EXPECT_EQ(brenna.downloadSizeBytes, 700);
  EXPECT_TRUE(brenna.updateAvailable());
  EXPECT_EQ(brenna.source(), CopySource::direct);
  const auto& tolvi = result.statuses[1];
  EXPECT_EQ(tolvi.latestVersion, "5");
  EXPECT_EQ(tolvi.downloadSizeBytes, std::nullopt);
  EXPECT_FALSE(tolvi.isInstalled);
  EXPECT_FALSE(tolvi.updateAvailable());
  EXPECT_EQ(tolvi.source(), std::nullopt);
  // A metadata file without a version isn't a failure.
  EXPECT_EQ(result.statuses[2].latestVersion, std::nullopt);
  EXPECT_EQ(result.statuses[2].downloadSizeBytes, 7);
  EXPECT_EQ(result.statuses[3].latestVersion, std::nullopt);
}

TEST_F(Updates, OffersAnUpdateToACopyFromTheAppStore) {
  machine.addRegisteredApp("/Applications/Brenna.app",
                           {.identifier = "com.kelo.brenna.mac", .version = "1.0", .appStoreReceipt = true});
  meta(app(AppIdentifier::brenna)).answers(200, R"({"version": "2"})");
  const auto status = sweep({app(AppIdentifier::brenna)}).statuses.at(0);
  EXPECT_TRUE(status.isAppStore);
  EXPECT_TRUE(status.updateAvailable());
  EXPECT_EQ(status.source(), CopySource::appStore);
}

TEST_F(Updates, DetectsWithoutTheNetwork) {
  machine.addRegisteredApp("/Applications/Brenna.app",
                           {.identifier = "com.kelo.brenna.mac", .version = "1.0"});
  const auto result = sweep(apps(), false);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
  EXPECT_FALSE(result.allPackagesMissing);
  ASSERT_EQ(result.statuses.size(), AppIdentifiers::allCases.size());
  EXPECT_EQ(result.statuses[0].installedVersion, "1.0");
  EXPECT_EQ(result.statuses[0].latestVersion, std::nullopt);
}

TEST_F(Updates, HasNothingToTellOfNoApps) {
  for (const bool network : {true, false}) {
    const auto result = sweep({}, network);
    EXPECT_THAT(result.statuses, IsEmpty());
    EXPECT_FALSE(result.allPackagesMissing);
  }
}

TEST_F(Updates, SeesThatTheWholeTreeIsMissing) {
  EXPECT_TRUE(sweep(apps()).allPackagesMissing);
}

TEST_F(Updates, KeepsTheTreeForOneTransientFailure) {
  meta(app(AppIdentifier::rulo)).answers(503);
  EXPECT_FALSE(sweep(apps()).allPackagesMissing);
}

TEST_F(Updates, KeepsTheTreeForOnePackage) {
  meta(app(AppIdentifier::galdivane)).answers(200, "{}");
  EXPECT_FALSE(sweep(apps()).allPackagesMissing);
}

TEST_F(Updates, AsksForAllAppsAtOnce) {
  for (const auto& app : apps()) {
    meta(app, "arm64").takes(10s);
    meta(app, "universal").takes(10s);
  }
  sweep(apps());
  EXPECT_EQ(machine.dispatch.elapsed(), 20s);
}

TEST_F(Updates, EndsByItselfWhenNobodyAnswers) {
  for (const auto& app : apps()) meta(app).neverAnswers();
  EXPECT_FALSE(sweep(apps()).allPackagesMissing);
  EXPECT_EQ(machine.dispatch.elapsed(), 15s);
}

TEST_F(Updates, GivesTheStatusesAlone) {
  std::vector<AppUpdateStatus> statuses;
  machine.dispatch.runOnWorker([&] { statuses = UpdateChecker::statusAll(apps(), true); });
  EXPECT_EQ(statuses.size(), AppIdentifiers::allCases.size());
}

TEST_F(Updates, FetchesOneLatestVersion) {
  meta(app(AppIdentifier::brenna)).answers(200, R"({"version": "1.1"})");
  meta(app(AppIdentifier::tolvi)).answers(200, "{}");
  std::vector<std::optional<std::string>> versions;
  machine.dispatch.runOnWorker([&] {
    for (const auto id : {AppIdentifier::brenna, AppIdentifier::tolvi, AppIdentifier::rulo}) {
      versions.push_back(UpdateChecker::fetchLatestVersion(app(id), 15s));
    }
  });
  EXPECT_THAT(versions, ElementsAre("1.1", std::nullopt, std::nullopt));
}

}  // namespace
}  // namespace installer
