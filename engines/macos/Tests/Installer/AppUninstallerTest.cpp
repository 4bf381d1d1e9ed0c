// The transaction from the detection to its result, without an administrator.
#include "Installer/AppUninstallerStory.h"

namespace installer::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Uninstall : public AppUninstallerStory {};

TEST_F(Uninstall, StagesDeletesAndForgetsTheApp) {
  brennaIsInstalled();
  mac.files.forgetChanges();
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_THAT(mac.files.changes(), Contains("move /Applications/Brenna.app -> " + staged));
  EXPECT_THAT(mac.files.changes(), Contains("remove " + staged));
  EXPECT_THAT(
      story(),
      ElementsAre("INFO AppUninstaller: Successfully removed Kelo Brenna from /Applications/Brenna.app",
                  "INFO AppUninstaller: lsregister -u /Applications/Brenna.app exited 0",
                  "INFO AppUninstaller: lsregister -u " + staged + " exited 0"));
  EXPECT_EQ(mac.workspace.applicationPath(kBrennaIdentifier), std::nullopt);
}

TEST_F(Uninstall, BeginsWithALine) {
  uninstall(Password::isNeverAskedFor);
  EXPECT_EQ(mac.logLines("AppUninstaller:").front(),
            "INFO AppUninstaller: Starting uninstall for Kelo Brenna");
}

TEST_F(Uninstall, FindsNothingToRemove) {
  uninstall(Password::mayBeAskedFor);
  expectAlreadyAbsent();
  EXPECT_THAT(story(), ElementsAre("INFO AppUninstaller: Kelo Brenna is not installed — nothing to remove"));
}

TEST_F(Uninstall, LeavesAnAppStoreCopyAloneAndRunning) {
  auto bundle = brenna();
  bundle.appStoreReceipt = true;
  mac.addRegisteredApp(path, bundle);
  before = mac.files.snapshot(path);
  mac.runningApps.launch(kBrennaIdentifier, "Brenna", 1);
  uninstall(Password::mayBeAskedFor);
  EXPECT_FALSE(result.success);
  EXPECT_TRUE(result.skipped);
  EXPECT_EQ(result.skipReason,
            "Kelo Brenna was installed via the Mac App Store at /Applications/Brenna.app. Remove it "
            "from Launchpad instead.");
  EXPECT_EQ(result.errorMessage, std::nullopt);
  EXPECT_TRUE(mac.runningApps.isRunning(1));
  expectUntouched();
  EXPECT_THAT(
      story(),
      ElementsAre("INFO AppUninstaller: Skipping Kelo Brenna — MAS install at /Applications/Brenna.app"));
}

TEST_F(Uninstall, QuitsAllVariantsButRemovesThePrimaryOnly) {
  brennaIsInstalled();
  mac.addRegisteredApp("/Applications/Brenna Fed.app", {.identifier = kFederalIdentifier});
  mac.runningApps.launch(kFederalIdentifier, "Brenna Fed", 2);
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_FALSE(mac.runningApps.isRunning(2));
  EXPECT_THAT(appsFolder(), ElementsAre("Brenna Fed.app/"));
}

TEST_F(Uninstall, ReadsTheDiskAfreshAfterwards) {
  brennaIsInstalled();
  uninstall(Password::isNeverAskedFor);
  mac.addRegisteredApp(path, {.identifier = kBrennaIdentifier, .version = "7.0"});
  EXPECT_EQ(ExistingAppDetector::detect(app()).primaryVersion, "7.0");
}

TEST_F(Uninstall, RemovesALinkUnderTheAppsNameAndNotWhatItLeadsTo) {
  mac.addApp("/Users/tester/Brenna.app", brenna());
  mac.files.addSymlink(path, "/Users/tester/Brenna.app");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_TRUE(mac.files.exists("/Users/tester/Brenna.app/Contents/Info.plist"));
}

TEST_F(Uninstall, FailsUntouchedWhenTheMoveFailsForAnotherReason) {
  for (const auto password : {Password::mayBeAskedFor, Password::isNeverAskedFor}) {
    brennaIsInstalled();
    mac.files.failNext(Operation::move, path, cocoa(CocoaError::fileWriteUnknown, "The disk is on fire."));
    uninstall(password);
    expectFailure("Failed to remove Kelo Brenna: The disk is on fire.", Flag::none);
    expectUntouched();
    EXPECT_EQ(story().back(),
              "ERROR AppUninstaller: could not stage Kelo Brenna out of /Applications/Brenna.app: The "
              "disk is on fire.");
  }
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
}

TEST_F(Uninstall, InAFolderThatMayNotBeChangedIsAMatterOfPermission) {
  brennaIsInstalled();
  mac.files.setWritable("/Applications", false);
  uninstall(Password::isNeverAskedFor);
  expectFailure(appManagement, Flag::permissionDenied);
  expectUntouched();
  EXPECT_EQ(story().back(), "INFO AppUninstaller: " + appManagement);
}

TEST_F(Uninstall, TellsPermissionErrorsByDomainAndCode) {
  struct Row {
    Error error;
    bool isPermission;
  };
  for (const auto& row :
       {Row{cocoa(513), true}, Row{cocoa(257), true}, Row{posix(1), true}, Row{posix(13), true},
        Row{cocoa(1), false}, Row{cocoa(13), false}, Row{cocoa(512), false}, Row{posix(2), false},
        Row{posix(513), false}, Row{{"Other", 513, "", nullptr}, false}}) {
    brennaIsInstalled();
    mac.files.failNext(Operation::move, path, row.error);
    uninstall(Password::isNeverAskedFor);
    EXPECT_EQ(result.permissionDenied, row.isPermission) << row.error.domain << " " << row.error.code;
    expectUntouched();
  }
}

TEST_F(Uninstall, WorksWithoutTheProgramThatUnregistersAndIsSilentAboutIt) {
  brennaIsInstalled();
  mac.programs.remove(mac.paths.lsregister);
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_THAT(mac.logLines("lsregister"), IsEmpty());
}

TEST_F(Uninstall, IsNotConcernedByWhatUnregisteringSays) {
  brennaIsInstalled();
  mac.programs.on(mac.paths.lsregister).exitsNext(1);
  mac.programs.on(mac.paths.lsregister).cannotLaunchNext("no lsregister");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_THAT(mac.logLines("lsregister"),
              ElementsAre("INFO AppUninstaller: lsregister -u /Applications/Brenna.app exited 1",
                          "WARN AppUninstaller: lsregister -u failed: no lsregister"));
  EXPECT_EQ(mac.programs.starts(mac.paths.lsregister)[0].captured, CapturedOutput::none);
}

TEST_F(Uninstall, OfSeveralAppsGoesOnAfterAFailureAndKeepsTheOrder) {
  brennaIsInstalled();
  mac.addRegisteredApp("/Applications/Kelo Rulo.app", {.identifier = "com.kelo.rulo"});
  mac.files.failNext(Operation::move, path, cocoa(512));
  const auto catalog = KeloAppProvider::shared();
  const std::vector<AppInfo> apps{*catalog.app(AppIdentifier::rulo), *catalog.app(AppIdentifier::brenna),
                                  *catalog.app(AppIdentifier::tolvi), *catalog.app(AppIdentifier::rulo)};
  Lines ends;
  for (const auto& one : AppUninstaller::uninstallAll(apps, false)) {
    ends.push_back(std::string{rawValue(one.app.id)} + (one.alreadyAbsent ? " absent"
                                                        : one.success     ? " removed"
                                                                          : " failed"));
  }
  EXPECT_EQ(ends, (Lines{"rulo removed", "brenna failed", "tolvi absent", "rulo absent"}));
  EXPECT_TRUE(AppUninstaller::uninstallAll({}, false).empty());
}

TEST_F(Uninstall, OfSeveralAppsReportsThoseBehindTheFirstNoAsNeverReached) {
  brennaIsInstalled();
  const auto catalog = KeloAppProvider::shared();
  const std::vector<AppInfo> apps{*catalog.app(AppIdentifier::brenna), *catalog.app(AppIdentifier::rulo),
                                  *catalog.app(AppIdentifier::tolvi)};
  int asked = 0;
  const auto results = AppUninstaller::uninstallAll(apps, false, [&asked] { return ++asked != 2; });
  EXPECT_EQ(asked, 2) << "a prompt after a refusal";
  ASSERT_EQ(results.size(), 3U);
  EXPECT_TRUE(results[0].success);
  EXPECT_TRUE(results[1].cancelled && results[2].cancelled);
  EXPECT_EQ(results[2].errorMessage, "cancelled");
  EXPECT_THAT(mac.logLines("Starting uninstall"), ::testing::SizeIs(1));
}

}  // namespace
}  // namespace installer::test
