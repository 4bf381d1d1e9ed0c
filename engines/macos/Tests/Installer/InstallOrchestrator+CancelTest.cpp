// The effect of a cancel at each point of a run.
#include "Installer/InstallOrchestratorStory.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

class CancelledRun : public InstallOrchestratorStory {
 protected:
  // Post the cancel to the main queue when the installer's next step of that kind runs.
  void whenItVerifies(const Work& cancel) { during(mac.paths.spctl, cancel); }
  void whenItInstalls(const Work& cancel) { during(mac.paths.xattr, cancel); }

 private:
  void during(const Path& program, const Work& cancel) {
    mac.programs.on(program).doesNext([this, cancel](const Arguments&) {
      mac.dispatch.syncMain(cancel);
      return ProgramExit{};
    });
  }
};

TEST_F(CancelledRun, BeforeAnAppIsReachedGivesItNoResult) {
  start({brenna, rulo});
  orchestrator->cancelInstallation();
  provider->fails(ProviderError::downloadFailed("cancelled"));
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna failed DOWNLOAD_FAILED 'Download failed: cancelled'"});
  EXPECT_EQ(provider->calls, (Lines{"acquire Kelo Brenna (1/2)", "cancel"}));
  EXPECT_EQ(log(), (Lines{"INFO InstallOrchestrator: Starting installation of 2 apps (offline=false)",
                          "INFO InstallOrchestrator: Processing app 1/2: Kelo Brenna",
                          "INFO InstallOrchestrator: Installation cancelled by user (stage=download)",
                          "ERROR InstallOrchestrator: Kelo Brenna failed: Download failed: cancelled",
                          "INFO InstallOrchestrator: Cancelled, stopping — delivering 1 collected results"}));
}

TEST_F(CancelledRun, BeforeOneAppIsReachedSkipsItInItsTurn) {
  everyDownloadWorks();
  provider->onAcquire = nullptr;
  start({brenna, rulo, tolvi});
  orchestrator->cancelApp(rulo);
  everyDownloadWorks();
  provider->delivers(download(brenna));
  letItEnd();
  EXPECT_EQ(endings(), (Lines{"brenna ok /Applications/Brenna.app", "rulo gave up 'cancelled'",
                              "tolvi ok /Applications/Kelo Tolvi.app"}));
  EXPECT_EQ(provider->calls, (Lines{"acquire Kelo Brenna (1/3)", "acquire Kelo Tolvi (3/3)"}))
      << "neither a transfer of the skipped app nor a cancel of another's";
  EXPECT_THAT(log(), Contains("INFO InstallOrchestrator: Cancel requested for rulo (stage=download)"));
  EXPECT_THAT(log(), Contains("INFO InstallOrchestrator: Skipping Kelo Rulo — cancelled by user"));
  EXPECT_THAT(log(), Contains("ERROR InstallOrchestrator: Kelo Rulo failed: cancelled"));
  EXPECT_THAT(delegate->heard, Not(Contains(::testing::StartsWith("rulo "))));
}

TEST_F(CancelledRun, WhileAnAppIsAcquiredGivesUpAPackageThatStillArrives) {
  struct Row {
    std::string name;
    Work cancel;
    bool isBundled;
    Lines endings;
  };
  for (const auto& row : std::vector<Row>{
           {"the run", [this] { orchestrator->cancelInstallation(); }, false, {"brenna gave up 'cancelled'"}},
           {"the run, from the resources",
            [this] { orchestrator->cancelInstallation(); },
            true,
            {"brenna gave up 'cancelled'"}},
           {"the app",
            [this] { orchestrator->cancelApp(brenna); },
            false,
            {"brenna gave up 'cancelled'",
             "rulo failed METADATA_INVALID 'Invalid package metadata response'"}},
           {"the app, from the resources",
            [this] { orchestrator->cancelApp(brenna); },
            true,
            {"brenna gave up 'cancelled'",
             "rulo failed METADATA_INVALID 'Invalid package metadata response'"}}}) {
    delegate->results.reset();
    provider->calls.clear();
    provider->onAcquire = [this](const AppInfo& info) {
      if (info.id == rulo) provider->fails(ProviderError::invalidResponse());
    };
    start({brenna, rulo});
    const auto package = row.isBundled ? bundled(brenna) : download(brenna);
    row.cancel();
    provider->delivers(package);
    letItEnd();
    EXPECT_EQ(endings(), row.endings) << row.name;
    EXPECT_THAT(provider->calls, Contains("cancel")) << row.name;
    EXPECT_EQ(mac.files.exists(package.fileURL), row.isBundled) << row.name;
    EXPECT_THAT(mac.programs.commandLines(), ::testing::Each("hdiutil info -plist"))
        << row.name << ": nothing is verified";
    EXPECT_FALSE(mac.files.exists("/Applications/Brenna.app")) << row.name;
  }
}

TEST_F(CancelledRun, WhileAnAppIsAcquiredCountsAFailureOfTheSourceAsAFailure) {
  provider->onCancel = [this] { provider->fails(ProviderError::downloadFailed("cancelled")); };
  provider->onAcquire = [this](const AppInfo& info) {
    if (info.id == rulo) provider->delivers(download(rulo));
  };
  start({brenna, rulo});
  orchestrator->cancelApp(brenna);
  letItEnd();
  EXPECT_EQ(endings(), (Lines{"brenna failed DOWNLOAD_FAILED 'Download failed: cancelled'",
                              "rulo ok /Applications/Kelo Rulo.app"}));
}

// Each acquisition of the source starts clean, so a cancel just before it has nothing to cancel.
TEST_F(CancelledRun, JustBeforeATransferBeginsEndsIt) {
  for (const bool wholeRun : {true, false}) {
    delegate->results.reset();
    provider->calls.clear();
    bool hasBegun = false;
    provider->onAcquire = [&](const AppInfo& info) {
      if (info.id == rulo) return provider->delivers(download(rulo));
      if (wholeRun) orchestrator->cancelInstallation();
      if (!wholeRun) orchestrator->cancelApp(brenna);
      hasBegun = true;
    };
    provider->onCancel = [&] {
      if (hasBegun) provider->fails(ProviderError::downloadFailed("cancelled"));
    };
    start({brenna, rulo});
    letItEnd();
    EXPECT_EQ(endings().front(), "brenna failed DOWNLOAD_FAILED 'Download failed: cancelled'");
    EXPECT_EQ(endings().size(), wholeRun ? 1U : 2U);
  }
}

// A source's cancel ends the acquisition at the time of the call.
TEST_F(CancelledRun, OfOneAppNeverMeetsTheTransferOfTheNext) {
  for (const bool isBeforeTheStart : {true, false}) {
    delegate->results.reset();
    std::optional<AppIdentifier> acquiring;
    std::vector<AppIdentifier> ended;
    provider->onAcquire = [&](const AppInfo& info) {
      if (info.id == brenna && isBeforeTheStart) orchestrator->cancelApp(brenna);
      acquiring = info.id;
      if (info.id == rulo) provider->delivers(download(rulo));
    };
    provider->onCancel = [&] {
      if (!acquiring) return;
      provider->fails(
          ProviderError::downloadFailed("lost"));  // fails by itself, just before the cancel takes effect
      ended.push_back(*acquiring);
    };
    start({brenna, rulo});
    if (!isBeforeTheStart) orchestrator->cancelApp(brenna);
    letItEnd();
    EXPECT_EQ(ended, std::vector{brenna});
    EXPECT_EQ(endings().size(), 2U);
  }
}

TEST_F(CancelledRun, WhileTheSecondAppIsVerifiedKeepsItsTrueResultAndStops) {
  provider->onAcquire = [this](const AppInfo& info) {
    if (info.id == rulo) whenItVerifies([this] { orchestrator->cancelInstallation(); });
    provider->delivers(download(info.id));
  };
  start({brenna, rulo, tolvi});
  letItEnd();
  EXPECT_EQ(endings(), (Lines{"brenna ok /Applications/Brenna.app", "rulo ok /Applications/Kelo Rulo.app"}));
  EXPECT_THAT(provider->calls, Not(Contains("cancel")));
  EXPECT_THAT(log(), Contains("INFO InstallOrchestrator: Installation cancelled by user (stage=verify)"));
  EXPECT_EQ(log().back(), "INFO InstallOrchestrator: Cancelled, stopping — delivering 2 collected results");
}

TEST_F(CancelledRun, WhileAnAppIsInstalledKeepsItsTrueResultAndStops) {
  everyDownloadWorks();
  whenItInstalls([this] { orchestrator->cancelInstallation(); });
  start({brenna, rulo});
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna ok /Applications/Brenna.app"});
  EXPECT_THAT(provider->calls, Not(Contains("cancel")));
  EXPECT_THAT(log(), Contains("INFO InstallOrchestrator: Installation cancelled by user (stage=install)"));
}

TEST_F(CancelledRun, OfOneAppAtWorkHasNoEffect) {
  for (const bool whileVerifying : {true, false}) {
    delegate->results.reset();
    mac.files.erase("/Applications/Brenna.app");
    everyDownloadWorks();
    const Work cancel = [this] { orchestrator->cancelApp(brenna); };
    if (whileVerifying) whenItVerifies(cancel);
    if (!whileVerifying) whenItInstalls(cancel);
    start({brenna, rulo});
    letItEnd();
    EXPECT_EQ(endings().front(), "brenna ok /Applications/Brenna.app");
    EXPECT_EQ(endings().size(), 2U);
    EXPECT_THAT(provider->calls, Not(Contains("cancel")));
  }
}

TEST_F(CancelledRun, OfAnAppThatHasEndedHasNoEffect) {
  provider->onAcquire = [this](const AppInfo& info) {
    if (info.id == brenna) provider->fails(ProviderError::invalidResponse());
  };
  start({brenna, rulo});
  orchestrator->cancelApp(brenna);
  provider->delivers(download(rulo));
  letItEnd();
  EXPECT_EQ(endings(), (Lines{"brenna failed METADATA_INVALID 'Invalid package metadata response'",
                              "rulo ok /Applications/Kelo Rulo.app"}));
  EXPECT_THAT(provider->calls, Not(Contains("cancel")));
}

TEST_F(CancelledRun, AfterItsEndLeavesTheResultsAsTheyStand) {
  everyDownloadWorks();
  start({brenna});
  letItEnd();
  orchestrator->cancelInstallation();
  orchestrator->cancelApp(brenna);
  mac.dispatch.runUntilIdle();
  EXPECT_EQ(endings(), Lines{"brenna ok /Applications/Brenna.app"});
}

TEST_F(CancelledRun, OfTheLastAppEndsOnce) {
  start({brenna});
  orchestrator->cancelApp(brenna);
  orchestrator->cancelInstallation();
  provider->delivers(download(brenna));
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna gave up 'cancelled'"});
}

// With a cancel at any point, the run ends exactly once, and each app's result is reported exactly once.
TEST(CancelledRunUnderAnySchedule, EndsExactlyOnce) {
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    SimulatedMachine mac{seed};
    const auto provider = std::make_shared<DirectedProvider>();
    const auto delegate = std::make_shared<RecordingDelegate>(mac);
    const auto orchestrator = std::make_shared<InstallOrchestrator>(provider);
    orchestrator->setDelegate(delegate);
    provider->onAcquire = [&](const AppInfo&) {
      mac.dispatch.asyncGlobal(QualityOfService::userInitiated,
                               [&] { provider->fails(ProviderError::downloadFailed("gone")); });
    };
    const auto& catalog = KeloAppProvider::shared().allApps();
    orchestrator->startInstallation(catalog);
    mac.dispatch.asyncMain([&] { orchestrator->cancelApp(rulo); });
    mac.dispatch.asyncMain([&] { orchestrator->cancelInstallation(); });
    mac.dispatch.runUntil([&] { return delegate->results.has_value(); });
    mac.dispatch.advance(1s);
    const auto ended = std::ranges::count_if(
        delegate->heard, [](const std::string& line) { return line.starts_with("ended:"); });
    EXPECT_EQ(static_cast<std::size_t>(ended), delegate->results->size()) << "seed " << seed;
    EXPECT_TRUE(delegate->heard.back().starts_with("finished")) << "seed " << seed;
  }
}

}  // namespace
}  // namespace installer::test
