#include <gmock/gmock.h>

#include "Engine/EngineControllerFixture.h"

namespace installer {
namespace {

using enum AppIdentifier;
using test::Lines;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

class EngineUpdateCheck : public test::EngineControllerTest {
 protected:
  explicit EngineUpdateCheck(Mode mode = Mode::online) : EngineControllerTest{mode} {
    machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["cdn.test"],
                                 "downloadPageUrl": "https://get.test/",
                                 "cdn": {"domains": {"us": "https://cdn.test"}, "releaseNotesEnabled": true}})");
    machine.network.on("https://get.test/").answers(200);
    machine.network.on("https://cdn.test/").answers(200);
  }
  static std::string folder(const std::string& id, const std::string& arch) {
    return "https://cdn.test/desksuite/apps/default/" + id + "/mac/" + arch + "/dmg/latest/";
  }
  void offer(const std::string& id, const std::string& arch, const std::string& version, int size) {
    machine.network.on(folder(id, arch) + "meta.json")
        .answers(200, R"({"version": ")" + version + R"(", "size": )" + std::to_string(size) + "}");
  }
  Json entries() const { return event("update-check-result")["apps"]; }
};

TEST_F(EngineUpdateCheck, TellsWhatIsOnOffer) {
  offer("brenna", "arm64", "2.0", 1000);
  machine.network.on(folder("brenna", "arm64") + "release-notes.json")
      .answers(200, R"({"releases": [{"version": "2.0", "notes": ["better"]}]})");
  addInstalled(brenna, "1.0");
  EXPECT_EQ(controller->checkUpdates({brenna}), ExitCode::success);
  EXPECT_EQ(transcript(), (Lines{"update-check-result", "done check-updates 0"}));
  auto entry = entries().at(0);
  EXPECT_GE(entry["requiredBytes"].get<int>(), 1000);
  entry.erase("requiredBytes");
  EXPECT_EQ(entry, Json::parse(R"({"id": "brenna", "updateAvailable": true, "latestVersion": "2.0",
    "sizeBytes": 1000, "releaseNotes": {"releases": [{"version": "2.0", "notes": ["better"]}]}})"));
}

TEST_F(EngineUpdateCheck, LeavesOutWhatItCouldNotLearn) {
  offer("brenna", "arm64", "2.0", 1000);
  controller->checkUpdates({brenna, tolvi});
  EXPECT_EQ(entries(), Json::parse(R"([{"id": "brenna", "updateAvailable": false, "latestVersion": "2.0",
                                        "sizeBytes": 1000, "requiredBytes": 2850},
                                       {"id": "tolvi", "updateAvailable": false}])"));
  EXPECT_FALSE(event("update-check-result").contains("installerRetired"));
}

TEST_F(EngineUpdateCheck, CoversTheCatalogInOrderForAnEmptyList) {
  controller->checkUpdates({});
  std::vector<AppIdentifier> ids;
  for (const auto& entry : entries())
    ids.push_back(AppIdentifiers::fromRawValue(entry["id"].get<std::string>()).value());
  EXPECT_THAT(ids, ElementsAreArray(AppIdentifiers::allCases));
}

TEST_F(EngineUpdateCheck, GivesTwoEntriesForAnAppNamedTwice) {
  offer("tolvi", "universal", "2.0", 1000);
  controller->checkUpdates({tolvi, tolvi});
  ASSERT_EQ(entries().size(), 2U);
  EXPECT_EQ(entries()[0], entries()[1]);
}

TEST_F(EngineUpdateCheck, AsksWhetherTheSourceIsGoneWhenEveryPackageIsMissing) {
  EXPECT_EQ(controller->checkUpdates({}), ExitCode::success);
  const auto retired = Json::parse(R"({"reason": "source-unavailable", "downloadUrl": "https://get.test/"})");
  EXPECT_EQ(event("update-check-result")["installerRetired"], retired);
  EXPECT_EQ(event("done")["installerRetired"], retired);
}

TEST_F(EngineUpdateCheck, DoesNotAskAfterAPartialFailure) {
  offer("tolvi", "universal", "2.0", 1000);
  controller->checkUpdates({});
  EXPECT_FALSE(event("update-check-result").contains("installerRetired"));
  EXPECT_FALSE(event("done").contains("installerRetired"));
  EXPECT_THAT(machine.network.requestLines(), Not(Contains("HEAD https://get.test/")));
}

TEST_F(EngineUpdateCheck, NeverAsksAboutTheSourceOfAnExpiredInstaller) {
  machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["cdn.test"],
                               "downloadPageUrl": "https://get.test/", "expiresOn": {"online": "2026-02-28"},
                               "cdn": {"domains": {"us": "https://cdn.test"}}})");
  EXPECT_EQ(controller->checkUpdates({}), ExitCode::success);
  EXPECT_EQ(event("update-check-result")["installerRetired"]["reason"], "expired");
  EXPECT_THAT(machine.network.requestLines(), Not(Contains("HEAD https://get.test/")));
}

TEST_F(EngineUpdateCheck, SucceedsWithoutANetwork) {
  machine.network.setOffline();
  EXPECT_EQ(controller->checkUpdates({brenna}), ExitCode::success);
  EXPECT_EQ(entries(), Json::parse(R"([{"id": "brenna", "updateAvailable": false}])"));
}

TEST_F(EngineUpdateCheck, FetchesReleaseNotesOneAfterTheOther) {
  for (const auto& [id, arch] : {std::pair{"brenna", "arm64"}, std::pair{"tolvi", "universal"}}) {
    offer(id, arch, "2.0", 10);
    machine.network.on(folder(id, arch) + "release-notes.json").neverAnswers();
  }
  controller->checkUpdates({brenna, tolvi});
  EXPECT_GE(machine.dispatch.elapsed().count(), 30.0);
  EXPECT_LT(machine.dispatch.elapsed().count(), 33.0);
}

class OfflineEngineUpdateCheck : public EngineUpdateCheck {
 protected:
  OfflineEngineUpdateCheck() : EngineUpdateCheck{Mode::offline} {}
};

TEST_F(OfflineEngineUpdateCheck, AsksForReleaseNotesAndNoMetadata) {
  machine.files.addFile(machine.resources + "/packages/packages.json",
                        R"({"x": {"destination": "brenna_installer.dmg", "version": "2.0"}})");
  offer("brenna", "arm64", "2.0", 1000);
  machine.network.on(folder("brenna", "arm64") + "release-notes.json")
      .answers(200, R"({"releases": [{"version": "2.0", "notes": []}]})");
  addInstalled(brenna, "1.0");
  controller->checkUpdates({brenna});
  EXPECT_EQ(entries(), Json::parse(R"([{"id": "brenna", "updateAvailable": false,
                                        "releaseNotes": {"releases": [{"version": "2.0", "notes": []}]}}])"));
  EXPECT_THAT(machine.network.requestLines(),
              ElementsAre("GET " + folder("brenna", "arm64") + "release-notes.json"));
}

}  // namespace
}  // namespace installer
