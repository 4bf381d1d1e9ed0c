#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Installer/SilentRunner.h"
#include "Models/Deployment.h"
#include "Support/ScriptedPackageProvider.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using test::Lines;

TEST(SilentSummary, WritesOneLineAnAppBetweenItsFrame) {
  test::SimulatedMachine machine;
  writeSummary(InstallerAction::install,
               {{"Kelo Brenna", AppStatus::installed, {}}, {"Kelo Tolvi", AppStatus::failed, "why \"so\""}},
               ExitCode::partialSuccess, {});
  EXPECT_EQ(machine.logLines(), (Lines{"INFO --- SILENT RUN SUMMARY action=install exit_code=1 ---",
                                       "INFO   app=\"Kelo Brenna\" status=installed",
                                       "INFO   app=\"Kelo Tolvi\" status=failed detail=\"why \"so\"\"",
                                       "INFO --- END SUMMARY ---"}));
}

TEST(SilentSummary, WritesNoDetailOfAFailureWithoutAMessage) {
  test::SimulatedMachine machine;
  writeSummary(InstallerAction::install, {{"Kelo Rulo", AppStatus::failed, {}}}, ExitCode::fullFailure, {});
  EXPECT_EQ(machine.logLines().at(1), "INFO   app=\"Kelo Rulo\" status=failed");
}

TEST(SilentSummary, WritesItsNoteBehindTheApps) {
  test::SimulatedMachine machine;
  writeSummary(InstallerAction::uninstall, {{"Kelo Rulo", AppStatus::failed, ""}}, ExitCode::invalidArguments,
               "note");
  EXPECT_EQ(machine.logLines(), (Lines{"INFO --- SILENT RUN SUMMARY action=uninstall exit_code=3 ---",
                                       "INFO   app=\"Kelo Rulo\" status=failed detail=\"\"",
                                       "INFO   note=\"note\"", "INFO --- END SUMMARY ---"}));
}

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Operation;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Apps = std::vector<AppIdentifier>;

class SilentRunnerTest : public ::testing::Test {
 protected:
  using Mode = test::ScriptedPackageProvider::Mode;
  explicit SilentRunnerTest(Mode mode = Mode::online)
      : provider{std::make_shared<test::ScriptedPackageProvider>(machine.dispatch, mode)} {
    machine.network.on(std::string{Deployment::connectivityProbeURL}).answers(200);
  }

  test::SimulatedMachine machine;
  std::shared_ptr<test::ScriptedPackageProvider> provider;

  std::int32_t install(const Apps& apps, bool strict = false, bool open = false) {
    return run({.action = InstallerAction::install,
                .selectedApps = apps,
                .openAfterInstall = open,
                .strict = strict});
  }
  std::int32_t uninstall(const Apps& apps, bool strict = false) {
    return run({.action = InstallerAction::uninstall,
                .selectedApps = apps,
                .openAfterInstall = false,
                .strict = strict});
  }
  std::int32_t run(const RunOptions& options) {
    return std::to_underlying(SilentRunner{provider}.run(options));
  }

  static const AppInfo& app(AppIdentifier identifier) { return *KeloAppProvider::shared().app(identifier); }
  AcquiredPackage image(AppIdentifier identifier, const std::string& version) {
    const auto& info = app(identifier);
    machine.images.add(info.tempFilePath(), "/Volumes/" + info.displayName,
                       [this, info, version](test::SimulatedFileSystem&, const Path& mountPoint) {
                         machine.addApp(joined(mountPoint, info.appBundleName),
                                        {.identifier = info.installerBundleIdentifier, .version = version});
                       });
    return {.fileURL = info.tempFilePath(), .checksum = {}, .skipGatekeeper = false, .version = version};
  }
  void addInstalled(AppIdentifier identifier, const std::string& version, bool fromAppStore = false) {
    const auto& info = app(identifier);
    machine.addRegisteredApp(
        joined(machine.paths.applications, info.appBundleName),
        {.identifier = info.installerBundleIdentifier, .version = version, .appStoreReceipt = fromAppStore});
  }
  static AcquisitionError failureWith(std::string message) {
    return Error{"OtherDomain", 7, std::move(message), nullptr};
  }

  // The summary in the log, with its first and last line.
  Lines summary() {
    auto lines = machine.logLines();
    const auto first = std::ranges::find_if(
        lines, [](const std::string& line) { return line.starts_with("INFO --- SILENT RUN SUMMARY"); });
    const auto last = std::ranges::find(lines, "INFO --- END SUMMARY ---");
    return last == lines.end() ? Lines{} : Lines(first, last + 1);
  }
};

class OfflineSilentRunnerTest : public SilentRunnerTest {
 protected:
  OfflineSilentRunnerTest() : SilentRunnerTest{Mode::offline} {}
};

Lines framed(const std::string& actionAndCode, Lines lines) {
  lines.insert(lines.begin(), "INFO --- SILENT RUN SUMMARY " + actionAndCode + " ---");
  lines.emplace_back("INFO --- END SUMMARY ---");
  return lines;
}

// The log of a run.

TEST_F(SilentRunnerTest, SaysWhatItIsAskedFor) {
  uninstall({});
  SilentRunner{provider}.run({.action = InstallerAction::uninstall,
                              .selectedApps = {rulo, brenna, rulo},
                              .openAfterInstall = true,
                              .strict = true});
  EXPECT_EQ(
      machine.logLines("SilentRunner: "),
      (Lines{"INFO SilentRunner: Starting — action=uninstall apps=all strict=false openAfterInstall=false",
             "INFO SilentRunner: Uninstalling " + identifierList(KeloAppProvider::shared().allApps()),
             "INFO SilentRunner: Starting — action=uninstall apps=rulo,brenna,rulo strict=true "
             "openAfterInstall=true",
             "INFO SilentRunner: Uninstalling rulo, brenna, rulo"}));
}

TEST_F(SilentRunnerTest, LogsProgressOfTheWholeRun) {
  provider->on(brenna)
      .reports("Downloading...", "5 of 10", {.percent = 50, .downloadedBytes = 5, .totalBytes = 10})
      .delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(machine.logLines("SilentRunner ["),
            (Lines{"INFO SilentRunner [install 25%] Downloading... | 5 of 10",
                   "INFO SilentRunner [install 42%] Verifying Kelo Brenna (1/2)...",
                   "INFO SilentRunner [install 45%] Installing Kelo Brenna (1/2)...",
                   "INFO SilentRunner [install 50%] Kelo Brenna installed successfully"}));
}

TEST_F(SilentRunnerTest, WritesNothingToTheStreams) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  install({brenna});
  EXPECT_TRUE(machine.streams.events().empty());
  EXPECT_TRUE(machine.streams.error().empty());
}

// The three early ends, in their order.

TEST_F(SilentRunnerTest, StopsWithoutAnyApp) {
  machine.setConfiguration(R"({"apps": {
    "brenna": {"primaryBundleIdentifier": "b", "included": false},
    "tolvi": {"primaryBundleIdentifier": "t", "included": false},
    "rulo": {"primaryBundleIdentifier": "r", "included": false},
    "galdivane": {"primaryBundleIdentifier": "g", "included": false}},
    "expiresOn": {"online": "2026-02-28"}})");
  machine.network.setOffline();
  EXPECT_EQ(install({}), 3);
  EXPECT_EQ(summary(),
            framed("action=install exit_code=3", {"INFO   note=\"No valid app identifiers supplied\""}));
  EXPECT_THAT(machine.logLines(),
              Contains("ERROR SilentRunner: No valid apps resolved from --apps argument"));
}

TEST_F(SilentRunnerTest, StopsAnUninstallWithoutAnyApp) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(uninstall({rulo}), 3);
  EXPECT_EQ(summary(),
            framed("action=uninstall exit_code=3", {"INFO   note=\"No valid app identifiers supplied\""}));
  EXPECT_THAT(machine.logLines(),
              Contains("ERROR SilentRunner: No valid apps resolved from --apps argument"));
}

TEST_F(SilentRunnerTest, StopsOnAnExpiredInstallerWithoutTestingTheNetwork) {
  machine.setConfiguration(
      R"({"apps": {}, "downloadPageUrl": "https://get.test/", "expiresOn": {"online": "2026-02-28"}})");
  const std::string message =
      "This installer expired on 2026-02-28. Download a current installer from https://get.test/.";
  EXPECT_EQ(install({brenna}), 2);
  EXPECT_EQ(summary(), framed("action=install exit_code=2", {"INFO   note=\"" + message + "\""}));
  EXPECT_THAT(machine.logLines(), Contains("INFO SilentRunner: " + message));
  EXPECT_THAT(machine.network.requests(), IsEmpty());
  EXPECT_THAT(provider->calls(), IsEmpty());
}

TEST_F(SilentRunnerTest, StopsWithoutAConnection) {
  machine.network.setOffline();
  EXPECT_EQ(install({}), 5);
  EXPECT_EQ(summary(), framed("action=install exit_code=5", {"INFO   note=\"No internet connection\""}));
  EXPECT_THAT(
      machine.logLines("SilentRunner: "),
      ElementsAre(HasSubstr("Starting"),
                  "INFO SilentRunner: Installing " + identifierList(KeloAppProvider::shared().allApps()),
                  "INFO SilentRunner: Checking internet connectivity…",
                  "ERROR SilentRunner: No internet connection — aborting"));
  EXPECT_THAT(provider->calls(), IsEmpty());
}

TEST_F(SilentRunnerTest, ConfirmsAConnection) {
  install({brenna});
  EXPECT_THAT(machine.logLines(), Contains("INFO SilentRunner: Internet connection confirmed"));
}

TEST_F(OfflineSilentRunnerTest, DoesNotTestTheConnection) {
  machine.network.setOffline();
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
  EXPECT_THAT(machine.logLines("connectivity"), IsEmpty());
}

// Outcomes of an install.

TEST_F(SilentRunnerTest, SummarisesEachAppInOrder) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  provider->on(tolvi).fails(ProviderError::downloadFailed("the \"line\" broke"));
  EXPECT_EQ(install({brenna, tolvi}), 1);
  EXPECT_EQ(
      summary(),
      framed("action=install exit_code=1",
             {"INFO   app=\"Kelo Brenna\" status=installed",
              "INFO   app=\"Kelo Tolvi\" status=failed detail=\"Download failed: the \"line\" broke\""}));
}

TEST_F(SilentRunnerTest, FailsWholeWhenStrict) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna, tolvi}, true), 2);
}

TEST_F(SilentRunnerTest, ReadsADeniedPermissionOutOfTheMessage) {
  provider->on(brenna).fails(failureWith("Permission denied writing to /Applications"));
  EXPECT_EQ(install({brenna}), 4);
}

TEST_F(SilentRunnerTest, LetsADeniedPermissionReplaceAFullFailureOnly) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  provider->on(tolvi).fails(failureWith("Permission denied"));
  EXPECT_EQ(install({brenna, tolvi}), 1);
  provider->on(brenna) = {};
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna, tolvi}, true), 4);
}

TEST_F(SilentRunnerTest, TakesACurrentAppForASuccessAndOpensIt) {
  addInstalled(brenna, "2.0");
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}, true, true), 0);
  EXPECT_EQ(summary(), framed("action=install exit_code=0", {"INFO   app=\"Kelo Brenna\" status=installed"}));
  EXPECT_EQ(machine.programs.commandLines(machine.paths.open), (Lines{"open /Applications/Brenna.app"}));
}

TEST_F(SilentRunnerTest, JudgesNothingAfterTenMinutesOfSilence) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  provider->on(tolvi).hangs();
  EXPECT_EQ(install({brenna, tolvi}), 0);
  EXPECT_EQ(summary(), framed("action=install exit_code=0", {}));
  EXPECT_THAT(machine.logLines(),
              Contains("ERROR SilentRunner: Idle timeout (600 s with no progress) — proceeding with partial "
                       "results"));
  EXPECT_THAT(provider->calls(), Not(Contains("cancel")));
}

TEST_F(SilentRunnerTest, WaitsForADownloadThatKeepsReporting) {
  auto& script = provider->on(brenna);
  for (int i = 0; i < 10; ++i) script.takes(599s).reports("Downloading...", "", {.percent = 1.0 * i});
  script.delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_EQ(summary().size(), 3U);
}

TEST_F(SilentRunnerTest, StopsWaitingAtTheLimitAndNotLater) {
  provider->on(brenna).takes(601s).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_GE(machine.dispatch.elapsed().count(), 600.0);
  EXPECT_LT(machine.dispatch.elapsed().count(), 601.0);
}

// Opening.

TEST_F(SilentRunnerTest, OpensWhatItInstalledInOrderAndOnlyWhenAsked) {
  provider->on(tolvi).delivers(image(tolvi, "3.0"));
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({tolvi, rulo, brenna}, false, true), 1);
  EXPECT_EQ(machine.programs.commandLines(machine.paths.open),
            (Lines{"open /Applications/Kelo Tolvi.app", "open /Applications/Brenna.app"}));
  EXPECT_TRUE(machine.programs.starts(machine.paths.open).at(0).launched)
      << "the runner must not wait for it";
  EXPECT_EQ(machine.logLines("Opening"),
            (Lines{"INFO SilentRunner: Opening Kelo Tolvi at /Applications/Kelo Tolvi.app",
                   "INFO SilentRunner: Opening Kelo Brenna at /Applications/Brenna.app"}));
}

TEST_F(SilentRunnerTest, OpensNothingUnlessAsked) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  EXPECT_EQ(install({brenna}), 0);
  EXPECT_THAT(machine.programs.starts(machine.paths.open), IsEmpty());
}

TEST_F(SilentRunnerTest, IgnoresAnAppThatCantBeOpened) {
  provider->on(brenna).delivers(image(brenna, "2.0"));
  machine.programs.on(machine.paths.open).cannotLaunch("gone");
  EXPECT_EQ(install({brenna}, false, true), 0);
}

// Outcomes of an uninstall.

TEST_F(SilentRunnerTest, Uninstalls) {
  addInstalled(brenna, "1.0");
  EXPECT_EQ(uninstall({brenna}), 0);
  EXPECT_EQ(summary(),
            framed("action=uninstall exit_code=0", {"INFO   app=\"Kelo Brenna\" status=uninstalled"}));
  EXPECT_FALSE(machine.files.exists("/Applications/Brenna.app"));
}

TEST_F(SilentRunnerTest, FindsAnAppAlreadyAbsent) {
  EXPECT_EQ(uninstall({brenna}), 0);
  EXPECT_EQ(summary(),
            framed("action=uninstall exit_code=0", {"INFO   app=\"Kelo Brenna\" status=already_absent"}));
}

TEST_F(SilentRunnerTest, GivesTheReasonOfASkippedApp) {
  addInstalled(rulo, "1.0", true);
  EXPECT_EQ(uninstall({rulo}, true), 0);
  EXPECT_EQ(
      summary(),
      framed("action=uninstall exit_code=0",
             {"INFO   app=\"Kelo Rulo\" status=skipped detail=\"Kelo Rulo was installed via the Mac App "
              "Store at /Applications/Kelo Rulo.app. Remove it from Launchpad instead.\""}));
}

TEST_F(SilentRunnerTest, NeverAsksForAPasswordAndReportsADeniedPermission) {
  addInstalled(brenna, "1.0");
  machine.files.setWritable("/Applications", false);
  EXPECT_EQ(uninstall({brenna}), 4);
  EXPECT_THAT(machine.administrator.commandLines(), IsEmpty());
  EXPECT_THAT(summary().at(1),
              HasSubstr("status=failed detail=\"Cannot remove Kelo Brenna: permission denied."));
}

TEST_F(SilentRunnerTest, LetsADeniedPermissionBePartialWhenAnotherAppSucceeded) {
  addInstalled(brenna, "1.0");
  machine.files.setWritable("/Applications", false);
  EXPECT_EQ(uninstall({brenna, tolvi}), 1);
  EXPECT_EQ(uninstall({brenna, tolvi}, true), 4);
}

TEST_F(SilentRunnerTest, ReportsAnotherFailureOfAnUninstall) {
  addInstalled(brenna, "1.0");
  machine.files.failAlways(Operation::move, "/Applications/Brenna.app",
                           Error{std::string{ErrorDomain::cocoa}, 512, "disk trouble", nullptr});
  EXPECT_EQ(uninstall({brenna}), 2);
  EXPECT_EQ(summary(), framed("action=uninstall exit_code=2",
                              {"INFO   app=\"Kelo Brenna\" status=failed detail=\"Failed to remove Kelo "
                               "Brenna: disk trouble\""}));
}

TEST_F(SilentRunnerTest, UninstallsOnAnExpiredInstallerWithoutANetwork) {
  machine.setConfiguration(R"({"apps": {}, "expiresOn": {"online": "2026-02-28"}})");
  machine.network.setOffline();
  EXPECT_EQ(uninstall({brenna}), 0);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
}

}  // namespace
}  // namespace installer
