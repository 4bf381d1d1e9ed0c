#include <gmock/gmock.h>

#include "Engine/EngineControllerFixture.h"

namespace installer {
namespace {

using enum AppIdentifier;
using test::Lines;
using test::Operation;
using ::testing::IsEmpty;

class EngineQueries : public test::EngineControllerTest {
 protected:
  using EngineControllerTest::EngineControllerTest;

  Json doneEvent() const { return event("done"); }
  // The catalog row of one app in the `hello` event.
  Json row(const std::string& id) const {
    const auto hello = event("hello");
    for (const auto& app : hello["apps"]) {
      if (app["id"] == id) return app;
    }
    ADD_FAILURE() << "no row for " << id;
    return {};
  }
};

class OfflineEngineQueries : public EngineQueries {
 protected:
  OfflineEngineQueries() : EngineQueries{Mode::offline} {
    machine.files.addFile(machine.resources + "/packages/brenna_installer.dmg", std::string(10, 'x'));
  }
  void setManifest(std::string_view json) {
    machine.files.addFile(machine.resources + "/packages/packages.json", json);
  }
};

// hello

TEST_F(EngineQueries, HelloAnswersWithoutANetwork) {
  machine.network.setOffline();
  addInstalled(brenna, "1.0");
  EXPECT_EQ(controller->hello(), ExitCode::success);
  EXPECT_EQ(transcript(), (Lines{"hello", "done hello 0"}));
  EXPECT_THAT(machine.network.requests(), IsEmpty());
  EXPECT_EQ(machine.dispatch.elapsed().count(), 0);
  EXPECT_EQ(event("hello")["mode"], "online");
  const auto hello = event("hello");
  for (const auto& app : hello["apps"]) {
    EXPECT_TRUE(app["latestVersion"].is_null());
    EXPECT_EQ(app["updateAvailable"], false);
  }
}

TEST_F(EngineQueries, HelloListsWhatThisEngineCanDo) {
  controller->hello();
  EXPECT_EQ(event("hello")["capabilities"],
            Json({"install", "update", "uninstall", "check-updates", "offline", "export-logs"}));
}

TEST_F(EngineQueries, HelloTellsAShellToSkipItsTerms) {
  machine.setConfiguration(R"({"apps": {}, "showTermsStep": false})");
  controller->hello();
  EXPECT_EQ(event("hello")["capabilities"], Json({"install", "update", "uninstall", "check-updates",
                                                  "offline", "export-logs", "skip-terms"}));
}

TEST_F(EngineQueries, HelloDescribesAnAppThatIsNotInstalled) {
  controller->hello();
  EXPECT_EQ(row("galdivane"), Json::parse(R"({"id": "galdivane", "displayName": "Kelo Galdivane",
                            "descriptionCode": "app.galdivane.desc", "iconName": "galdi_icon",
                            "updateAvailable": false, "installedVersion": null, "latestVersion": null,
                            "sizeBytes": 220200960, "source": null,
                            "webUrl": "https://www.kelo.example/galdivane", "requiredBytes": 605552640})"));
}

TEST_F(EngineQueries, HelloDescribesAnInstalledApp) {
  addInstalled(rulo, "1.5");
  machine.files.addFile("/Applications/Kelo Rulo.app/Contents/data", "x");
  machine.files.setAllocatedSize("/Applications/Kelo Rulo.app/Contents/data", 100'000'000);
  controller->hello();
  const auto app = row("rulo");
  EXPECT_EQ(app["installedVersion"], "1.5");
  EXPECT_EQ(app["installedPath"], "/Applications/Kelo Rulo.app");
  EXPECT_EQ(app["source"], "direct");
  // The image and the expanded bundle, minus the size of the old copy.
  EXPECT_LT(app["requiredBytes"].get<std::int64_t>(), 116135417 + 220657292 - 100'000'000 + 1);
  EXPECT_GE(app["requiredBytes"].get<std::int64_t>(), 116135417);
}

TEST_F(EngineQueries, HelloReclaimsNothingOfAnAppStoreCopy) {
  addAppStoreCopy(galdivane, "1.5");
  machine.files.addFile("/Applications/Kelo Galdivane.app/Contents/data", "x");
  machine.files.setAllocatedSize("/Applications/Kelo Galdivane.app/Contents/data", 100'000'000);
  controller->hello();
  EXPECT_EQ(row("galdivane")["source"], "appstore");
  EXPECT_EQ(row("galdivane")["requiredBytes"], 605552640);
}

TEST_F(EngineQueries, HelloPrefersTheConfiguredWebPage) {
  machine.setConfiguration(R"({"apps": {}, "appWebUrls": {"brenna": "https://other.test/b"}})");
  controller->hello();
  EXPECT_EQ(row("brenna")["webUrl"], "https://other.test/b");
  EXPECT_EQ(row("tolvi")["webUrl"], "https://kelo.example/tolvi");
}

TEST_F(EngineQueries, HelloTellsThatTheInstallerHasExpired) {
  machine.setConfiguration(
      R"({"apps": {}, "downloadPageUrl": "https://get.test/", "expiresOn": {"online": "2026-02-28"}})");
  controller->hello();
  const auto retired =
      Json::parse(R"({"reason": "expired", "downloadUrl": "https://get.test/", "expiresOn": "2026-02-28"})");
  EXPECT_EQ(event("hello")["installerRetired"], retired);
  EXPECT_EQ(doneEvent()["installerRetired"], retired);
  EXPECT_EQ(doneEvent()["exitCode"], 0);
}

TEST_F(OfflineEngineQueries, HelloOffersThePackagesBesideTheInstaller) {
  setManifest(R"({"x": {"destination": "brenna_installer.dmg", "version": "2.0", "size": 1000}})");
  addInstalled(brenna, "1.9");
  controller->hello();
  EXPECT_EQ(event("hello")["mode"], "offline");
  EXPECT_EQ(row("brenna")["latestVersion"], "2.0");
  EXPECT_EQ(row("brenna")["updateAvailable"], true);
  EXPECT_EQ(row("brenna")["sizeBytes"], 1000);
}

TEST_F(OfflineEngineQueries, HelloOffersNoUpdateToACurrentOrAbsentCopy) {
  setManifest(R"({"x": {"destination": "brenna_installer.dmg", "version": "2.0"},
                  "y": {"destination": "tolvi_installer.dmg", "version": "2.0"}})");
  addInstalled(brenna, "2.0");
  controller->hello();
  EXPECT_EQ(row("brenna")["updateAvailable"], false);
  EXPECT_EQ(row("tolvi")["updateAvailable"], false);
  EXPECT_EQ(row("tolvi")["latestVersion"], "2.0");
}

TEST_F(OfflineEngineQueries, HelloMeasuresAPackageThatTheManifestDoesNotDescribe) {
  controller->hello();
  EXPECT_EQ(row("brenna")["sizeBytes"], 10);
  EXPECT_EQ(row("brenna")["requiredBytes"], 28);
  EXPECT_EQ(row("tolvi")["sizeBytes"], 293601280) << "the catalog's figure, since no image is there";
}

TEST_F(OfflineEngineQueries, HelloFallsBackToTheSizeOfTheCatalogWithoutResources) {
  machine.noResources();
  controller->hello();
  EXPECT_EQ(row("brenna")["sizeBytes"], 279172874);
}

// disk-free

TEST_F(EngineQueries, DiskFreeMeasuresAFolder) {
  machine.files.addVolume("/Volumes/Data", 5000);
  EXPECT_EQ(controller->diskFree("/Volumes/Data"), ExitCode::success);
  EXPECT_EQ(
      event("disk-free-result"),
      Json::parse(R"({"v": 1, "type": "disk-free-result", "path": "/Volumes/Data", "freeBytes": 5000})"));
  EXPECT_EQ(transcript(), (Lines{"disk-free-result", "done disk-free 0"}));
}

TEST_F(EngineQueries, DiskFreeMeasuresTheNearestParentThatExistsAndReportsThePathAsItCame) {
  machine.files.addVolume("/Volumes/Data", 5000);
  machine.files.setCapacity("/", 77);
  const std::vector<std::pair<std::string, int>> rows{
      {"/Volumes/Data/not/yet/there", 5000},
      {"/Volumes/Data/not/", 5000},
      {"/Volumes//Data//not", 5000},
      {"/no/such/place", 77},
      {"/", 77},
      {"//", 77},
  };
  for (const auto& [path, freeBytes] : rows) {
    machine.streams.forgetOutput();
    EXPECT_EQ(controller->diskFree(path), ExitCode::success);
    EXPECT_EQ(event("disk-free-result")["path"], path);
    EXPECT_EQ(event("disk-free-result")["freeBytes"], freeBytes) << path;
  }
}

TEST_F(EngineQueries, DiskFreeTakesTheFolderOfTheAppsForAnEmptyPath) {
  machine.files.setCapacity("/", 77);
  controller->diskFree("");
  EXPECT_EQ(event("disk-free-result")["path"], "/Applications");
  EXPECT_EQ(event("disk-free-result")["freeBytes"], 77);
}

TEST_F(EngineQueries, DiskFreeSucceedsWithAnUnknownSize) {
  machine.files.addVolume("/Volumes/Mute", std::nullopt);
  EXPECT_EQ(controller->diskFree("/Volumes/Mute"), ExitCode::success);
  EXPECT_TRUE(event("disk-free-result")["freeBytes"].is_null());
  EXPECT_EQ(doneEvent()["exitCode"], 0);
}

// export-logs

TEST_F(EngineQueries, ExportLogsGivesThePathOfTheArchive) {
  EXPECT_EQ(controller->exportLogs("/out"), ExitCode::success);
  const auto result = event("export-logs-result");
  EXPECT_THAT(result["path"].get<std::string>(), ::testing::StartsWith("/out/KeloDeskInstaller-logs-"));
  EXPECT_TRUE(machine.files.exists(result["path"].get<std::string>()));
  EXPECT_TRUE(result["errorCode"].is_null());
  EXPECT_EQ(transcript(), (Lines{"export-logs-result", "done export-logs 0"}));
}

TEST_F(EngineQueries, ExportLogsFailsWithStatusTwo) {
  machine.programs.on(machine.paths.ditto).exits(1);
  EXPECT_EQ(controller->exportLogs(std::nullopt), ExitCode::fullFailure);
  EXPECT_EQ(event("export-logs-result"), Json::parse(R"({"v": 1, "type": "export-logs-result", "path": null,
                                                         "errorCode": "UNKNOWN"})"));
  EXPECT_EQ(transcript().back(), "done export-logs 2");
  EXPECT_EQ(machine.logLines("exportLogs"), (Lines{"INFO exportLogs failed: ditto exited with 1"}));
}

TEST_F(EngineQueries, ExportLogsOfAnExpiredInstallerSaysSoOnDone) {
  machine.setConfiguration(R"({"apps": {}, "expiresOn": {"online": "2026-02-28"}})");
  controller->exportLogs("/out");
  EXPECT_EQ(doneEvent()["installerRetired"]["reason"], "expired");
  EXPECT_FALSE(event("export-logs-result").contains("installerRetired"));
}

}  // namespace
}  // namespace installer
