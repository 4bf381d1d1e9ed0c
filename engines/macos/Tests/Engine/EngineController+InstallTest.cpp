#include <gmock/gmock.h>

#include "Engine/EngineControllerFixture.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Apps = std::vector<AppIdentifier>;

class EngineInstall : public test::EngineControllerTest {
 protected:
  using EngineControllerTest::EngineControllerTest;

  std::int32_t update(const Apps& apps) {
    return std::to_underlying(controller->runInstall(apps, Action::update, false));
  }
  void expireOn(const std::string& date) {
    machine.setConfiguration(
        R"({"apps": {}, "downloadPageUrl": "https://get.test/", "expiresOn": {"online": ")" + date +
        R"("}})");
  }
};

class OfflineEngineInstall : public EngineInstall {
 protected:
  OfflineEngineInstall() : EngineInstall{Mode::offline} {}
};

constexpr auto kIdleMessage =
    "log error: Engine idle timeout (600s with no progress); proceeding with partial results";

TEST_F(EngineInstall, TellsAWholeRunInOrder) {
  provider->on(brenna)
      .reports("Downloading Kelo Brenna (1/2)...", "500 of 1000",
               {.percent = 50, .downloadedBytes = 500, .totalBytes = 1000})
      .reports("Downloading Kelo Brenna (1/2)...", "",
               {.percent = 100, .downloadedBytes = 1000, .totalBytes = 1000})
      .delivers(image(brenna, "2.0"));
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({brenna, tolvi}), 0);
  EXPECT_EQ(transcript(), (Lines{"stage brenna download 1/2",
                                 "progress brenna 0% DOWNLOADING",
                                 "log info: Downloading Kelo Brenna (1/2)... — 500 of 1000",
                                 "progress brenna 50% DOWNLOADING 500 of 1000",
                                 "log info: Downloading Kelo Brenna (1/2)...",
                                 "progress brenna 100% DOWNLOADING 1000 of 1000",
                                 "log info: Verifying Kelo Brenna (1/2)...",
                                 "stage brenna verify 1/2",
                                 "progress brenna ~85% VERIFYING",
                                 "log info: Installing Kelo Brenna (1/2)...",
                                 "stage brenna install 1/2",
                                 "progress brenna ~95% INSTALLING",
                                 "log info: Kelo Brenna installed successfully",
                                 "app-result brenna installed /Applications/Brenna.app 2.0",
                                 "stage tolvi download 2/2",
                                 "progress tolvi 0% DOWNLOADING",
                                 "log info: Verifying Kelo Tolvi (2/2)...",
                                 "stage tolvi verify 2/2",
                                 "progress tolvi ~85% VERIFYING",
                                 "log info: Installing Kelo Tolvi (2/2)...",
                                 "stage tolvi install 2/2",
                                 "progress tolvi ~95% INSTALLING",
                                 "log info: Kelo Tolvi installed successfully",
                                 "app-result tolvi installed /Applications/Kelo Tolvi.app 3.1",
                                 "done install 0: brenna installed /Applications/Brenna.app 2.0, "
                                 "tolvi installed /Applications/Kelo Tolvi.app 3.1"}));
}

TEST_F(EngineInstall, SpeaksOfAnUpdateWhenAskedForOne) {
  addInstalled(brenna, "1.0");
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(update({brenna}), 0);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna updated /Applications/Brenna.app 2.0",
                              "done update 0: brenna updated /Applications/Brenna.app 2.0"}));
}

TEST_F(EngineInstall, ReportsACurrentCopyAsSkipped) {
  addInstalled(brenna, "2.0");
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna skipped /Applications/Brenna.app 2.0",
                              "done install 0: brenna skipped /Applications/Brenna.app 2.0"}));
}

TEST_F(EngineInstall, TakesTheWholeCatalogForAnEmptyList) {
  for (const auto identifier : AppIdentifiers::allCases) {
    provider->on(identifier).fails(ProviderError::invalidResponse());
  }
  EXPECT_EQ(install({}), 2);
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/4)", "acquire Kelo Tolvi (2/4)",
                                             "acquire Kelo Rulo (3/4)", "acquire Kelo Galdivane (4/4)"));
}

TEST_F(EngineInstall, InstallsAnAppTwiceThatIsNamedTwiceAndReportsBoth) {
  auto package = image(brenna, "2.0");
  package.skipGatekeeper = true;  // not removed as a download, so the second round has it too
  provider->on(brenna).delivers(package);
  EXPECT_EQ(install({brenna, brenna}), 0);
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/2)", "acquire Kelo Brenna (2/2)"));
  EXPECT_EQ(outcome(), (Lines{"app-result brenna installed /Applications/Brenna.app 2.0",
                              "app-result brenna skipped /Applications/Brenna.app 2.0",
                              "done install 0: brenna installed /Applications/Brenna.app 2.0, "
                              "brenna skipped /Applications/Brenna.app 2.0"}));
}

TEST_F(EngineInstall, ReadsTheVersionsOfItsResultsAgainForTheEnd) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  provider->on(tolvi).takes(60s).fails(ProviderError::invalidResponse());
  machine.dispatch.schedule(30s, [this] { addInstalled(brenna, "2.1"); });
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna installed /Applications/Brenna.app 2.0",
                              "app-result tolvi failed METADATA_INVALID",
                              "done install 1: brenna installed /Applications/Brenna.app 2.1, "
                              "tolvi failed METADATA_INVALID"}));
}

TEST_F(EngineInstall, GoesOnAfterAFailingApp) {
  provider->on(brenna).fails(ProviderError::downloadFailed("x"));
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(transcript()[2], "app-result brenna failed DOWNLOAD_FAILED");
  EXPECT_EQ(outcome(), (Lines{"app-result brenna failed DOWNLOAD_FAILED",
                              "app-result tolvi installed /Applications/Kelo Tolvi.app 3.1",
                              "done install 1: brenna failed DOWNLOAD_FAILED, "
                              "tolvi installed /Applications/Kelo Tolvi.app 3.1"}));
}

TEST_F(EngineInstall, FailsWholeWhenStrict) {
  provider->on(brenna).fails(ProviderError::downloadFailed("x"));
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({brenna, tolvi}, true), 2);
}

TEST_F(EngineInstall, GivesAFailureWithoutACodeTheGeneralOne) {
  provider->on(brenna).fails(Error{"OtherDomain", 7, "something else", nullptr});
  EXPECT_EQ(install({brenna}), 2);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna failed INSTALL_FAILED",
                              "done install 2: brenna failed INSTALL_FAILED"}));
}

TEST_F(EngineInstall, ReadsADeniedPermissionOutOfTheMessage) {
  provider->on(brenna).fails(Error{"OtherDomain", 7, "Permission denied", nullptr});
  EXPECT_EQ(install({brenna}), 4);
  EXPECT_EQ(outcome().back(), "done install 4: brenna failed INSTALL_FAILED");
}

TEST_F(EngineInstall, DoesNotReadADeniedPermissionOutOfTheCode) {
  provider->on(brenna).fails(ProviderError::fileSaveFailed("no room"));
  EXPECT_EQ(install({brenna}), 2);
}

// Stops before the run begins.

TEST_F(EngineInstall, StopsWithoutAnyValidApp) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(install({rulo}), 3);
  EXPECT_EQ(transcript(), (Lines{"log error: No valid app identifiers supplied", "done install 3:"}));
}

TEST_F(EngineInstall, NamesTheActionWhenItStops) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(update({rulo}), 3);
  EXPECT_EQ(transcript().back(), "done update 3:");
}

TEST_F(EngineInstall, FailsEveryAppOfAnExpiredInstallerWithoutTouchingTheNetwork) {
  expireOn("2026-02-28");
  EXPECT_EQ(install({}), 2);
  const auto endings = eachApp("failed NOT_COMPATIBLE");
  Lines expected{
      "log error: This installer expired on 2026-02-28. Download a current installer from https://get.test/."};
  for (const auto& ending : endings) expected.push_back("app-result " + ending);
  expected.push_back(fmt::format("done install 2: {}", fmt::join(endings, ", ")));
  EXPECT_EQ(transcript(), expected);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
  EXPECT_THAT(provider->calls(), IsEmpty());
}

TEST_F(EngineInstall, LooksAtExpiryBeforeTheNetwork) {
  expireOn("2026-02-28");
  machine.network.setOffline();
  EXPECT_EQ(update({brenna}), 2);
  EXPECT_EQ(outcome().back(), "done update 2: brenna failed NOT_COMPATIBLE");
}

TEST_F(EngineInstall, FailsEveryAppWithoutANetwork) {
  machine.network.setOffline();
  EXPECT_EQ(install({tolvi, brenna}), 5);
  EXPECT_EQ(transcript(),
            (Lines{"log error: No internet connection", "app-result tolvi failed NETWORK_UNAVAILABLE",
                   "app-result brenna failed NETWORK_UNAVAILABLE",
                   "done install 5: tolvi failed NETWORK_UNAVAILABLE, "
                   "brenna failed NETWORK_UNAVAILABLE"}));
  EXPECT_THAT(provider->calls(), IsEmpty());
}

TEST_F(OfflineEngineInstall, NeverAsksForTheNetwork) {
  machine.network.setOffline();
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
}

// The idle limit.

TEST_F(EngineInstall, StopsWaitingAfterTenMinutesOfSilence) {
  provider->on(brenna).hangs();
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome(), (Lines{kIdleMessage, "app-result brenna cancelled", "app-result tolvi cancelled",
                              "done install 1: brenna cancelled, tolvi cancelled"}));
  EXPECT_EQ(machine.dispatch.elapsed(), 600s);
  EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/2)"));
}

TEST_F(EngineInstall, HasNoResultsAtAllAfterATimeout) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  provider->on(tolvi).hangs();
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna installed /Applications/Brenna.app 2.0", kIdleMessage,
                              "app-result brenna cancelled", "app-result tolvi cancelled",
                              "done install 1: brenna cancelled, tolvi cancelled"}));
}

TEST_F(EngineInstall, WaitsForADownloadThatKeepsReporting) {
  auto& script = provider->on(brenna);
  for (int i = 0; i < 10; ++i) script.takes(599s).reports("Downloading...", "", {.percent = 1.0 * i});
  script.delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(outcome().back(), "done install 0: brenna installed /Applications/Brenna.app 2.0");
}

TEST_F(EngineInstall, WaitsForAPasswordWithoutLimit) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  machine.files.setWritable("/Applications", false);
  machine.administrator.takes(900s);
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(outcome().back(), "done install 0: brenna installed /Applications/Brenna.app 2.0");
}

TEST_F(EngineInstall, StopsWaitingForAVerificationThatStaysSilent) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  machine.programs.on(machine.paths.spctl).takes(700s);
  EXPECT_EQ(install({brenna}), 1);
  EXPECT_EQ(outcome(),
            (Lines{kIdleMessage, "app-result brenna cancelled", "done install 1: brenna cancelled"}));
}

TEST_F(EngineInstall, EmitsNothingAfterDone) {
  provider->on(brenna).takes(605s).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 1);
  const auto before = transcript();
  machine.dispatch.advance(100s);
  EXPECT_EQ(transcript(), before);
}

// Waits for another engine.

constexpr auto kWaitMessage =
    "log info: Waiting for another Kelo Desk Installer, which is at work in /Applications, before Kelo Brenna";

class EngineInstallInTurn : public EngineInstall {
 protected:
  // Another engine has the turn for `length`, then runs `atItsEnd` and releases it. It never releases the
  // turn when `length` is absent.
  void anotherEngineWorks(std::optional<Duration> length, Work atItsEnd = {}) {
    machine.files.setLockedByAnother("/Applications");
    if (!length) return;
    machine.dispatch.schedule(*length, [this, atItsEnd] {
      if (atItsEnd) atItsEnd();
      machine.files.setLockedByAnother("/Applications", false);
    });
  }
  Lines waits() {
    auto lines = transcript();
    std::erase_if(lines, [](const auto& line) { return !line.starts_with("log info: Waiting"); });
    return lines;
  }
};

TEST_F(EngineInstallInTurn, WaitsBeforeItAcquiresAndSaysSoOnce) {
  anotherEngineWorks(100s);
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(waits(), Lines{kWaitMessage});
  EXPECT_EQ(transcript().at(0), kWaitMessage);
  EXPECT_EQ(outcome().back(), "done install 0: brenna installed /Applications/Brenna.app 2.0");
  EXPECT_EQ(machine.logLines("AppTurn:"),
            Lines{"INFO AppTurn: " + std::string{kWaitMessage}.substr(std::string{"log info: "}.size())});
}

TEST_F(EngineInstallInTurn, SkipsWhatTheOtherEngineInstalledMeanwhile) {
  anotherEngineWorks(10s, [this] { addInstalled(brenna, "2.0"); });
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(outcome().back(), "done install 0: brenna skipped /Applications/Brenna.app 2.0");
}

TEST_F(EngineInstallInTurn, CountsTheWaitForALivingEngineAsASignOfLife) {
  anotherEngineWorks(1700s);
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(waits(), Lines{kWaitMessage});
}

TEST_F(EngineInstallInTurn, FailsOneAppAfterTheOtherWhenTheWaitsLimitPasses) {
  anotherEngineWorks(std::nullopt);
  EXPECT_EQ(install({brenna}), 2);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna failed INSTALL_FAILED",
                              "done install 2: brenna failed INSTALL_FAILED"}));
  EXPECT_THAT(provider->calls(), ::testing::IsEmpty());
  EXPECT_THAT(machine.logLines("AppTurn:"),
              ::testing::Contains(
                  "ERROR AppTurn: Kelo Brenna was not changed: another Kelo Desk Installer has been at work "
                  "in /Applications for 30 minutes."));
}

TEST_F(EngineInstallInTurn, EndsTheWaitAtACancelOfTheRun) {
  anotherEngineWorks(std::nullopt);
  machine.dispatch.schedule(20s, [this] { controller->cancelAll(); });
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome().back(), "done install 1: brenna cancelled, tolvi cancelled");
  EXPECT_LT(machine.dispatch.elapsed(), 21s);
}

TEST_F(EngineInstallInTurn, EndsTheWaitOfOneAppAtItsCancel) {
  anotherEngineWorks(40s);
  machine.dispatch.schedule(20s, [this] { controller->cancelApp("brenna"); });
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(outcome().back(),
            "done install 1: brenna cancelled, tolvi installed /Applications/Kelo Tolvi.app 3.1");
}

TEST_F(EngineInstallInTurn, GoesOnWithoutATurnWhereTheFolderCannotBeLocked) {
  machine.files.failAlways(test::Operation::lock, "/Applications",
                           {"NSPOSIXErrorDomain", 45, "No locks.", nullptr});
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_THAT(
      machine.logLines("AppTurn:"),
      ElementsAre("WARN AppTurn: /Applications can't be locked, continuing without a lock: No locks."));
}

TEST_F(EngineInstallInTurn, LetsAWaitingEngineWorkBetweenTwoApps) {
  provider->on(brenna).takes(10s).delivers(image(brenna, "2.0"));
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  machine.dispatch.schedule(5s, [this] { machine.files.setLockedByAnother("/"); });  // begins to wait
  machine.dispatch.schedule(20s, [this] {
    EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/2)"));
    EXPECT_NE(machine.files.tryLock("/Applications").value(), nullptr);
    machine.files.setLockedByAnother("/Applications");
    machine.files.setLockedByAnother("/", false);
  });
  machine.dispatch.schedule(50s, [this] {
    EXPECT_THAT(provider->calls(), ElementsAre("acquire Kelo Brenna (1/2)"));
    machine.files.setLockedByAnother("/Applications", false);
  });
  EXPECT_EQ(install({brenna, tolvi}), 0);
  EXPECT_THAT(waits(), ElementsAre("log info: Waiting for another Kelo Desk Installer, which is at work in "
                                   "/Applications, before Kelo Tolvi"));
}

TEST_F(EngineInstallInTurn, ClearsTheLogCopiesOfAnInterruptedExport) {
  const Path staging = "/private/tmp/tester/KeloDeskInstaller-logexport-16";
  machine.files.addFile(staging + "/a.log");
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_FALSE(machine.files.exists(staging));
}

TEST_F(EngineInstallInTurn, ClearsWhatAKilledEngineLeftUnderAnyName) {
  machine.files.addLeftover("/Applications/Kelo Rulo 2.app");
  machine.files.addFile("/Applications/.My Brenna.app.kelo-uninstall/Contents/Resources/text");
  machine.files.addFile("/Applications/.notes");
  machine.files.addFile("/Applications/.My Brenna.app.kelo-uninstall-notes");
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({tolvi}), 0);
  EXPECT_THAT(
      machine.files.contentsOfDirectory("/Applications").value(),
      ::testing::UnorderedElementsAre("Kelo Tolvi.app", ".notes", ".My Brenna.app.kelo-uninstall-notes"));
}

TEST_F(EngineInstallInTurn, PutsBackTheAppOfAnInterruptedRemovalThatNeedsAPassword) {
  const Path staged = "/Applications/.Brenna.app.kelo-uninstall";
  addInstalled(brenna, "1.0");
  ASSERT_TRUE(machine.files.moveItem("/Applications/Brenna.app", staged));
  machine.files.setWritable(staged + "/Contents", false);
  machine.verdicts.refuse(test::SimulatedVerdicts::Check::requirement, staged);
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({tolvi}), 0);
  EXPECT_FALSE(machine.files.exists("/Applications/Brenna.app"));
  machine.verdicts.accept(test::SimulatedVerdicts::Check::requirement, staged);
  provider->on(rulo).delivers(image(rulo, "1.0"));
  EXPECT_EQ(install({rulo}), 0);
  EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app/Contents/Info.plist"));
  EXPECT_FALSE(machine.files.exists(staged));
}

TEST_F(EngineInstallInTurn, HoldsTheTurnUntilTheDownloadIsDeleted) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  provider->on(tolvi).delivers(image(tolvi, "3.1"));
  EXPECT_EQ(install({brenna, tolvi}), 0);
  EXPECT_THAT(waits(), ::testing::IsEmpty());
  machine.dispatch.runUntilIdle();
  EXPECT_NE(machine.files.tryLock("/Applications").value(), nullptr);
}

}  // namespace
}  // namespace installer
