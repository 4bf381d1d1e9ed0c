// The list of apps: order, reports, results, and the life of the packages.
#include "Installer/InstallOrchestratorStory.h"

namespace installer::testing {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class InstallRun : public InstallOrchestratorStory {};

TEST_F(InstallRun, OfNoAppsIsSilent) {
  start({});
  mac.dispatch.advance(60s);
  EXPECT_THAT(delegate->heard, IsEmpty());
  EXPECT_THAT(provider->calls, IsEmpty());
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(InstallRun, OfOneAppTellsItsWholeStory) {
  start({brenna});
  provider->reports("Downloading Kelo Brenna...", "half", 40, 4, 10);
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

TEST_F(InstallRun, SaysWhetherItsSourceIsOffline) {
  provider->offline = true;
  EXPECT_TRUE(orchestrator->isOfflineMode());
  start({brenna});
  EXPECT_EQ(log().front(), "INFO InstallOrchestrator: Starting installation of 1 apps (offline=true)");
}

TEST_F(InstallRun, GoesOnAfterAnAppThatFailsItsVerification) {
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

TEST_F(InstallRun, ReportsAllAppsInOrderUnderAnySchedule) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    SimulatedMachine fresh{seed};
    const auto source = std::make_shared<DirectedProvider>();
    const auto ears = std::make_shared<RecordingDelegate>(fresh);
    const auto run = std::make_shared<InstallOrchestrator>(source);
    run->setDelegate(ears);
    source->onAcquire = [&](const AppInfo&) {
      fresh.dispatch.asyncGlobal(QualityOfService::userInitiated, [&] {
        source->reports("Downloading", "", 10);
        source->fails(ProviderError::downloadFailed("gone"));
      });
    };
    run->startInstallation(apps({brenna, tolvi, galdivane}));
    fresh.dispatch.runUntil([&] { return ears->results.has_value(); });
    const std::string failed = " failed DOWNLOAD_FAILED 'Download failed: gone'";
    EXPECT_EQ(ears->heard,
              (Lines{"brenna download 0", "3.33333% Downloading", "brenna download 10",
                     "ended: brenna" + failed, "tolvi download 0", "36.6667% Downloading",
                     "tolvi download 10", "ended: tolvi" + failed, "galdivane download 0", "70% Downloading",
                     "galdivane download 10", "ended: galdivane" + failed, "finished with 3"}))
        << "seed " << seed;
  }
}

TEST_F(InstallRun, MapsEachFailureOfItsSourceToAStableCode) {
  struct Row {
    AcquisitionError error;
    std::string ending;
  };
  const std::string blocked = "'Download from 'evil.example' was blocked — domain not in trusted list'";
  for (const auto& row : std::vector<Row>{
           {ProviderError::versionCheckFailed("x"), " NETWORK_UNAVAILABLE 'Failed to check for updates: x'"},
           {ProviderError::downloadFailed("x"), " DOWNLOAD_FAILED 'Download failed: x'"},
           {ProviderError::fileSaveFailed("x"), " FILE_SAVE_FAILED 'Failed to save downloaded file: x'"},
           {ProviderError::packageNotFound("x"), " PACKAGE_NOT_FOUND 'Package not found: x'"},
           {ProviderError::untrustedDownloadURL("evil.example"), " UNTRUSTED_SOURCE " + blocked},
           {ProviderError::unsupportedChecksum("md5"),
            " VERIFY_FAILED 'Package metadata uses an unsupported checksum algorithm 'md5' — the download "
            "cannot be "
            "verified'"},
           {ProviderError::sourceRetired({}),
            " SOURCE_UNAVAILABLE 'This installer's download location is no longer available — download a "
            "current "
            "installer'"},
           {ProviderError::invalidResponse(), " METADATA_INVALID 'Invalid package metadata response'"},
           {ProviderError::invalidVersionFormat(), " METADATA_INVALID 'Invalid package metadata format'"},
           {Error{"Other", 7, "Something else", nullptr}, " 'Something else'"},
       }) {
    delegate->results.reset();
    provider->onAcquire = [&](const AppInfo&) { provider->fails(row.error); };
    start({rulo});
    letItEnd();
    EXPECT_EQ(endings(), Lines{"rulo failed" + row.ending});
  }
}

TEST_F(InstallRun, StopsAtTheFirstFailedCheckOfAPackage) {
  struct Row {
    std::string name;
    std::function<void(SimulatedMachine&, AcquiredPackage&)> spoil;
    std::string ending;
    std::string logLine;
  };
  using enum SimulatedVerdicts::Check;
  for (const auto& row : std::vector<Row>{
           {"digest",
            [](SimulatedMachine&, AcquiredPackage& package) { package.checksum = std::string(64, '0'); },
            "VERIFY_FAILED 'Checksum verification failed for Kelo Brenna'",
            "ERROR InstallOrchestrator: Checksum failed for Kelo Brenna"},
           {"gatekeeper",
            [](SimulatedMachine& m, AcquiredPackage& package) {
              m.verdicts.refuse(gatekeeper, package.fileURL);
            },
            "GATEKEEPER_FAILED 'Gatekeeper verification failed for Kelo Brenna'",
            "ERROR InstallOrchestrator: Gatekeeper failed for Kelo Brenna"},
           {"integrity",
            [](SimulatedMachine& m, AcquiredPackage& package) {
              m.verdicts.refuse(integrity, package.fileURL);
            },
            "SIGNATURE_FAILED 'Signature verification failed for Kelo Brenna'",
            "ERROR InstallOrchestrator: Signature failed for Kelo Brenna"},
           {"requirement",
            [](SimulatedMachine& m, AcquiredPackage& package) {
              m.verdicts.refuse(requirement, package.fileURL);
            },
            "SIGNATURE_FAILED 'Signature verification failed for Kelo Brenna'",
            "ERROR InstallOrchestrator: Signature failed for Kelo Brenna"},
       }) {
    delegate->results.reset();
    provider->onAcquire = [&](const AppInfo& info) {
      auto package = download(info.id);
      row.spoil(mac, package);
      provider->delivers(std::move(package));
    };
    start({brenna});
    letItEnd();
    EXPECT_EQ(endings(), Lines{"brenna failed " + row.ending}) << row.name;
    EXPECT_THAT(mac.logLines(row.logLine), ::testing::Not(IsEmpty())) << row.name;
    EXPECT_FALSE(mac.files.exists(app(brenna).tempFilePath()))
        << row.name << ": a bad download is removed too";
    EXPECT_THAT(mac.images.history(), IsEmpty()) << row.name;
    for (const auto check : {gatekeeper, integrity, requirement})
      mac.verdicts.accept(check, app(brenna).tempFilePath());
  }
}

TEST_F(InstallRun, AsksGatekeeperBeforeTheSignature) {
  everyDownloadWorks();
  start({brenna});
  letItEnd();
  Lines programs;
  for (const auto& started : mac.programs.starts()) programs.push_back(lastPathComponent(started.program));
  EXPECT_THAT(programs, ElementsAre("spctl", "codesign", "codesign", "hdiutil", "codesign", "codesign",
                                    "xattr", "hdiutil"));
}

TEST_F(InstallRun, SkipsTheChecksThatAPackageDoesNotCallFor) {
  struct Row {
    bool hasChecksum;
    bool skipsGatekeeper;
    Lines firstPrograms;
  };
  for (const auto& row : std::vector<Row>{{false, false, {"spctl", "codesign", "codesign"}},
                                          {true, true, {"hdiutil"}},
                                          {false, true, {"hdiutil"}}}) {
    delegate->results.reset();
    mac.programs.forgetStarts();
    mac.files.erase("/Applications/Brenna.app");
    provider->onAcquire = [&](const AppInfo& info) {
      auto package = download(info.id);
      if (!row.hasChecksum) package.checksum.reset();
      package.skipGatekeeper = row.skipsGatekeeper;
      provider->delivers(std::move(package));
    };
    const auto digestLines = mac.logLines("Checksum verification").size();
    start({brenna});
    letItEnd();
    EXPECT_EQ(endings(), Lines{"brenna ok /Applications/Brenna.app"});
    Lines programs;
    for (const auto& started : mac.programs.starts()) programs.push_back(lastPathComponent(started.program));
    programs.resize(row.firstPrograms.size());
    EXPECT_EQ(programs, row.firstPrograms);
    EXPECT_EQ(mac.logLines("Checksum verification").size() - digestLines, row.hasChecksum ? 1U : 0U);
    EXPECT_EQ(mac.files.exists(app(brenna).tempFilePath()), row.skipsGatekeeper)
        << "an image from the resources is never deleted";
  }
}

TEST_F(InstallRun, TellsOfAnInstalledCopyThatIsCurrentInTheSameWords) {
  everyDownloadWorks();
  mac.addRegisteredApp("/Applications/Brenna.app", {.identifier = "com.kelo.brenna.mac", .version = "2.0"});
  start({brenna});
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna ok already current /Applications/Brenna.app"});
  EXPECT_THAT(delegate->heard, ::testing::Contains("100% Kelo Brenna installed successfully"));
  EXPECT_THAT(log(), ::testing::Contains("INFO InstallOrchestrator: Kelo Brenna installed successfully"));
}

TEST_F(InstallRun, PassesOnWhatTheInstallerSaysAndNamesAFailureWithoutACode) {
  everyDownloadWorks();
  mac.verdicts.refuse(SimulatedVerdicts::Check::requirement, "/Volumes/Kelo Tolvi/Kelo Tolvi.app");
  mac.programs.on(mac.paths.hdiutil).exitsNext(1);
  start({brenna, tolvi});
  letItEnd();
  EXPECT_EQ(endings(),
            (Lines{"brenna failed INSTALL_FAILED 'hdiutil attach failed with exit code 1'",
                   "tolvi failed SIGNATURE_FAILED 'Kelo Tolvi could not be verified as genuine and was not "
                   "installed.'"}));
  EXPECT_THAT(log(), ::testing::Contains(
                         "ERROR InstallOrchestrator: Kelo Brenna failed: hdiutil attach failed with exit "
                         "code 1"));
  EXPECT_THAT(mac.logLines("Telemetry disabled"), SizeIs(2));
}

TEST_F(InstallRun, KeepsADownloadUntilTheNextAcquisitionHasBegun) {
  Lines filesAtAcquisition;
  provider->onAcquire = [&](const AppInfo& info) {
    filesAtAcquisition = mac.files.tree(mac.paths.temporaryDirectory);
    provider->delivers(download(info.id));
  };
  start({brenna, rulo});
  letItEnd();
  EXPECT_THAT(filesAtAcquisition, ElementsAre("brenna_installer.dmg"));
  EXPECT_THAT(mac.files.tree(mac.paths.temporaryDirectory), IsEmpty());
}

TEST_F(InstallRun, IsNotConcernedByADownloadThatCannotBeRemoved) {
  everyDownloadWorks();
  mac.files.failNext(Operation::remove, app(brenna).tempFilePath(),
                     Error{"NSCocoaErrorDomain", 513, "no", nullptr});
  start({brenna});
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna ok /Applications/Brenna.app"});
}

TEST_F(InstallRun, FillsTheOverallBarByTheAppsShare) {
  provider->onAcquire = [this](const AppInfo& info) {
    if (info.id == brenna) provider->fails(ProviderError::invalidResponse());
  };
  start({brenna, tolvi, rulo, galdivane});
  provider->reports("Downloading", "", 50);
  mac.dispatch.runUntilIdle();
  EXPECT_THAT(delegate->heard, ::testing::Contains("37.5% Downloading"));
}

TEST_F(InstallRun, GoesOnWithoutADelegate) {
  everyDownloadWorks();
  delegate.reset();
  start({brenna, rulo});
  mac.dispatch.runUntilIdle();
  EXPECT_TRUE(mac.files.exists("/Applications/Brenna.app"));
  EXPECT_TRUE(mac.files.exists("/Applications/Kelo Rulo.app"));
}

TEST_F(InstallRun, NeedsOnlyTheFirstTwoOperationsOfADelegate) {
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

TEST_F(InstallRun, EndsAtItsNextStepWhenItsOwnerLetsGo) {
  start({brenna});
  mac.dispatch.runUntilIdle();
  const auto package = download(brenna);
  orchestrator.reset();
  provider->reports("Downloading", "", 50);
  provider->delivers(package);
  mac.dispatch.runUntilIdle();
  EXPECT_EQ(delegate->heard, Lines{"brenna download 0"});
  EXPECT_FALSE(mac.files.exists("/Applications/Brenna.app"));
}

TEST_F(InstallRun, CanBeFollowedByAnother) {
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
      "");
}

}  // namespace
}  // namespace installer::testing
