// The steps for one acquired package: its checks, its installation, its removal afterwards.
#include "Installer/InstallOrchestratorStory.h"

namespace installer::test {
namespace {

using enum AppIdentifier;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class AcquiredPackageRun : public InstallOrchestratorStory {};

TEST_F(AcquiredPackageRun, MapsEachFailureOfItsSourceToAStableCode) {
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

TEST_F(AcquiredPackageRun, StopsAtTheFirstFailedCheckOfAPackage) {
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

TEST_F(AcquiredPackageRun, AsksGatekeeperBeforeTheSignature) {
  everyDownloadWorks();
  start({brenna});
  letItEnd();
  Lines programs;
  for (const auto& started : mac.programs.starts()) programs.push_back(lastPathComponent(started.program));
  EXPECT_THAT(programs, ElementsAre("spctl", "codesign", "codesign", "hdiutil", "codesign", "codesign",
                                    "xattr", "hdiutil"));
}

TEST_F(AcquiredPackageRun, SkipsTheChecksThatAPackageDoesNotCallFor) {
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

TEST_F(AcquiredPackageRun, TellsOfAnInstalledCopyThatIsCurrentInTheSameWords) {
  everyDownloadWorks();
  mac.addRegisteredApp("/Applications/Brenna.app", {.identifier = "com.kelo.brenna.mac", .version = "2.0"});
  start({brenna});
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna ok already current /Applications/Brenna.app"});
  EXPECT_THAT(delegate->heard, ::testing::Contains("100% Kelo Brenna installed successfully"));
  EXPECT_THAT(log(), ::testing::Contains("INFO InstallOrchestrator: Kelo Brenna installed successfully"));
}

TEST_F(AcquiredPackageRun, PassesOnWhatTheInstallerSaysAndNamesAFailureWithoutACode) {
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

TEST_F(AcquiredPackageRun, KeepsADownloadUntilTheNextAcquisitionHasBegun) {
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

TEST_F(AcquiredPackageRun, IsNotConcernedByADownloadThatCannotBeRemoved) {
  everyDownloadWorks();
  mac.files.failNext(Operation::remove, app(brenna).tempFilePath(),
                     Error{"NSCocoaErrorDomain", 513, "no", nullptr});
  start({brenna});
  letItEnd();
  EXPECT_EQ(endings(), Lines{"brenna ok /Applications/Brenna.app"});
}

}  // namespace
}  // namespace installer::test
