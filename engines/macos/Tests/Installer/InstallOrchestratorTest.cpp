// The list of apps: order, reports, results and the end of a run.
#include <set>

#include "Installer/InstallOrchestratorStory.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using ::testing::IsEmpty;

class InstallOrchestratorTest : public InstallOrchestratorStory {};

TEST_F(InstallOrchestratorTest, OfNoAppsIsSilent) {
  start({});
  mac.dispatch.advance(60s);
  EXPECT_THAT(delegate->heard, IsEmpty());
  EXPECT_THAT(provider->calls, IsEmpty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(InstallOrchestratorTest, OfOneAppTellsItsWholeStory) {
  start({brenna});
  provider->reports("Downloading Kelo Brenna...", "half",
                    {.percent = 40, .downloadedBytes = 4, .totalBytes = 10});
  provider->delivers(download(brenna));
  letItEnd();
  EXPECT_EQ(delegate->heard,
            (Lines{"brenna download 0", "40% Downloading Kelo Brenna... | half",
                   "brenna download 40 4 bytes of 10", "85% Verifying Kelo Brenna (1/1)...",
                   "brenna verify 85 indeterminate", "90% Installing Kelo Brenna (1/1)...",
                   "brenna install 95 indeterminate", "100% Kelo Brenna installed successfully",
                   "ended: brenna ok /Applications/Brenna.app", "finished with 1"}));
  EXPECT_EQ(log(), (Lines{"INFO InstallOrchestrator: Starting installation of 1 apps (offline=false)",
                          "INFO InstallOrchestrator: Processing app 1/1: Kelo Brenna",
                          "INFO InstallOrchestrator: Kelo Brenna installed successfully",
                          "INFO InstallOrchestrator: All 1 apps processed"}));
  EXPECT_TRUE(mac.files.exists("/Applications/Brenna.app"));
  EXPECT_FALSE(mac.files.exists(app(brenna).tempFilePath())) << "a download is removed after use";
}

TEST_F(InstallOrchestratorTest, SaysWhetherItsSourceIsOffline) {
  provider->offline = true;
  EXPECT_TRUE(orchestrator->isOfflineMode());
  start({brenna});
  EXPECT_EQ(log().front(), "INFO InstallOrchestrator: Starting installation of 1 apps (offline=true)");
}

TEST_F(InstallOrchestratorTest, GoesOnAfterAnAppThatFailsItsVerification) {
  everyDownloadWorks();
  mac.verdicts.refuse(SimulatedVerdicts::Check::gatekeeper, app(rulo).tempFilePath());
  start({brenna, rulo, tolvi});
  letItEnd();
  EXPECT_EQ(endings(), (Lines{"brenna ok /Applications/Brenna.app",
                              "rulo failed GATEKEEPER_FAILED 'Gatekeeper verification failed for Kelo Rulo'",
                              "tolvi ok /Applications/Kelo Tolvi.app"}));
  EXPECT_EQ(provider->calls,
            (Lines{"acquire Kelo Brenna (1/3)", "acquire Kelo Rulo (2/3)", "acquire Kelo Tolvi (3/3)"}));
  EXPECT_THAT(mac.files.tree(mac.paths.temporaryDirectory), IsEmpty());
}

TEST_F(InstallOrchestratorTest, ReportsAllAppsInOrderUnderAnySchedule) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    startAfresh(mac, seed);
    const auto source = std::make_shared<DirectedProvider>();
    const auto ears = std::make_shared<RecordingDelegate>(mac);
    const auto run = std::make_shared<InstallOrchestrator>(source);
    run->setDelegate(ears);
    source->onAcquire = [&](const AppInfo&) {
      mac.dispatch.asyncGlobal(QualityOfService::userInitiated, [&] {
        source->reports("Downloading", "", {.percent = 10});
        source->fails(ProviderError::downloadFailed("gone"));
      });
    };
    run->startInstallation(apps({brenna, tolvi, galdivane}));
    mac.dispatch.runUntil([&] { return ears->results.has_value(); });
    const std::string failed = " failed DOWNLOAD_FAILED 'Download failed: gone'";
    EXPECT_EQ(ears->heard,
              (Lines{"brenna download 0", "3.33333% Downloading", "brenna download 10",
                     "ended: brenna" + failed, "tolvi download 0", "36.6667% Downloading",
                     "tolvi download 10", "ended: tolvi" + failed, "galdivane download 0", "70% Downloading",
                     "galdivane download 10", "ended: galdivane" + failed, "finished with 3"}))
        << "seed " << seed;
  }
}

TEST_F(InstallOrchestratorTest, TakesNoMoreStackForMoreAppsThatEndAtOnce) {
  std::vector<AppIdentifier> list(500, brenna);
  list.insert(list.end(), 500, rulo);  // skipped
  list.push_back(tolvi);
  std::set<const void*> frames;
  provider->onAcquire = [&](const AppInfo&) {
    if (frames.empty()) orchestrator->cancelApp(rulo);
    frames.insert(__builtin_frame_address(0));
    provider->fails(ProviderError::packageNotFound("none"));
  };
  start(list);
  letItEnd();
  EXPECT_EQ(endings().size(), list.size());
  EXPECT_EQ(provider->calls.size(), 501U);
  EXPECT_EQ(frames.size(), 1U);
}

TEST_F(InstallOrchestratorTest, FillsTheOverallBarByTheAppsShare) {
  provider->onAcquire = [this](const AppInfo& info) {
    if (info.id == brenna) provider->fails(ProviderError::invalidResponse());
  };
  start({brenna, tolvi, rulo, galdivane});
  provider->reports("Downloading", "", {.percent = 50});
  mac.dispatch.runUntilIdle();
  EXPECT_THAT(delegate->heard, ::testing::Contains("37.5% Downloading"));
}

TEST_F(InstallOrchestratorTest, GoesOnWithoutADelegate) {
  everyDownloadWorks();
  delegate.reset();
  start({brenna, rulo});
  mac.dispatch.runUntilIdle();
  EXPECT_TRUE(mac.files.exists("/Applications/Brenna.app"));
  EXPECT_TRUE(mac.files.exists("/Applications/Kelo Rulo.app"));
}

TEST_F(InstallOrchestratorTest, NeedsOnlyTheFirstTwoOperationsOfADelegate) {
  struct Minimal : InstallOrchestratorDelegate {
    void orchestratorDidUpdateProgress(const std::string&, const std::string&, double) override {}
    void orchestratorDidFinish(const std::vector<AppInstallResult>& all) override { count = all.size(); }
    std::size_t count = 0;
  };
  everyDownloadWorks();
  const auto minimal = std::make_shared<Minimal>();
  orchestrator->setDelegate(minimal);
  start({brenna});
  mac.dispatch.runUntilIdle();
  EXPECT_EQ(minimal->count, 1U);
}

TEST_F(InstallOrchestratorTest, EndsAtItsNextStepWhenItsOwnerLetsGo) {
  start({brenna});
  mac.dispatch.runUntilIdle();
  const auto package = download(brenna);
  orchestrator.reset();
  provider->reports("Downloading", "", {.percent = 50});
  provider->delivers(package);
  mac.dispatch.runUntilIdle();
  EXPECT_EQ(delegate->heard, Lines{"brenna download 0"});
  EXPECT_FALSE(mac.files.exists("/Applications/Brenna.app"));
}

TEST_F(InstallOrchestratorTest, CanBeFollowedByAnother) {
  everyDownloadWorks();
  start({brenna});
  orchestrator->cancelApp(rulo);
  letItEnd();
  delegate->results.reset();
  start({rulo});
  letItEnd();
  EXPECT_EQ(endings(), Lines{"rulo ok /Applications/Kelo Rulo.app"});
}

TEST(InstallRunDeathTest, StopsTheProcessWhenASourceEndsAnAcquisitionTwice) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const SimulatedMachine mac;
        const auto provider = std::make_shared<DirectedProvider>();
        const auto orchestrator = std::make_shared<InstallOrchestrator>(provider);
        orchestrator->startInstallation({*KeloAppProvider::shared().app(brenna)});
        provider->fails(ProviderError::invalidResponse());
        provider->fails(ProviderError::invalidResponse());
      },
      "InstallOrchestrator: a source ended one acquisition twice");
}

}  // namespace
}  // namespace installer::test
