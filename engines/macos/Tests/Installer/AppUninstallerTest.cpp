// The transaction from the first look to its result, without an administrator.
#include "Installer/AppUninstallerStory.h"
#include "Support/PropertyListText.h"

namespace installer::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

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
  EXPECT_EQ(mac.workspace.applicationPath(brennaIdentifier), std::nullopt);
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
  mac.runningApps.launch(brennaIdentifier, "Brenna", 1);
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
  mac.addRegisteredApp("/Applications/Brenna Fed.app", {.identifier = federalIdentifier});
  mac.runningApps.launch(federalIdentifier, "Brenna Fed", 2);
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_FALSE(mac.runningApps.isRunning(2));
  EXPECT_THAT(appsFolder(), ElementsAre("Brenna Fed.app/"));
}

TEST_F(Uninstall, StagesACopyInASubfolderBesideIt) {
  mac.addRegisteredApp("/Applications/Tools/My Brenna.app", brenna());
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_THAT(mac.files.changes(), Contains("move /Applications/Tools/My Brenna.app -> "
                                            "/Applications/Tools/.My Brenna.app.kelo-uninstall"));
}

TEST_F(Uninstall, ReadsTheDiskAfreshAfterwards) {
  brennaIsInstalled();
  uninstall(Password::isNeverAskedFor);
  mac.addRegisteredApp(path, {.identifier = brennaIdentifier, .version = "7.0"});
  EXPECT_EQ(ExistingAppDetector::detect(app()).primaryVersion, "7.0");
}

TEST_F(Uninstall, ClearsWhatACrashedRunLeft) {
  brennaIsInstalled();
  mac.addApp(staged, brenna());
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_EQ(story().front(), "INFO AppUninstaller: clearing a leftover staging path at " + staged);
}

TEST_F(Uninstall, TakesTheNextNameWhenALeftoverCannotBeCleared) {
  brennaIsInstalled();
  mac.addApp(staged, brenna());
  mac.files.failAlways(Operation::remove, staged, cocoa(513));
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_THAT(appsFolder(), ElementsAre(".Brenna.app.kelo-uninstall/"));
  EXPECT_THAT(mac.files.changes(), Contains("move /Applications/Brenna.app -> " + staged + ".1"));
  const auto lines = story();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], "INFO AppUninstaller: clearing a leftover staging path at " + staged);
  EXPECT_EQ(lines[1], "WARN AppUninstaller: could not clear " + staged + " — trying the next staging name");
}

TEST_F(Uninstall, GivesUpAfterTwentyTakenNamesWithTheAppUntouched) {
  brennaIsInstalled();
  for (int number = 0; number < 20; ++number) {
    const auto candidate = number == 0 ? staged : staged + "." + std::to_string(number);
    mac.files.addDirectory(candidate);
    mac.files.failAlways(Operation::remove, candidate, cocoa(513));
  }
  uninstall(Password::mayBeAskedFor);
  expectFailure("Cannot remove Kelo Brenna: no free staging location next to /Applications/Brenna.app.",
                Flag::none);
  EXPECT_EQ(mac.files.snapshot(path), before);
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
  EXPECT_THAT(mac.logLines("trying the next staging name"), SizeIs(20));
  EXPECT_EQ(story().back(), "ERROR AppUninstaller: no free staging name beside /Applications/Brenna.app");
}

TEST_F(Uninstall, TakesTheTwentiethName) {
  brennaIsInstalled();
  for (int number = 0; number < 19; ++number) {
    const auto candidate = number == 0 ? staged : staged + "." + std::to_string(number);
    mac.files.addDirectory(candidate);
    mac.files.failAlways(Operation::remove, candidate, cocoa(513));
  }
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_THAT(mac.files.changes(), Contains("remove " + staged + ".19"));
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

TEST_F(Uninstall, DeletesNothingWhenADirectoryInsideWouldStopIt) {
  brennaIsInstalled();
  const auto inside = staged + "/Contents/Resources/en.lproj";
  mac.files.setWritable(path + "/Contents/Resources/en.lproj", false);
  mac.files.forgetChanges();
  uninstall(Password::isNeverAskedFor);
  expectFailure(appManagement, Flag::permissionDenied);
  expectUntouched();
  EXPECT_THAT(story(), ElementsAre("WARN AppUninstaller: " + inside +
                                       " is not writable — an unprivileged delete of Kelo "
                                       "Brenna would stop partway, so escalating instead",
                                   "INFO AppUninstaller: restored Kelo Brenna to /Applications/Brenna.app",
                                   "INFO AppUninstaller: " + appManagement));
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
}

TEST_F(Uninstall, LooksAtTheBundleItselfFirst) {
  brennaIsInstalled();
  mac.files.setWritable(path, false);
  mac.files.setWritable(path + "/Contents", false);
  uninstall(Password::isNeverAskedFor);
  EXPECT_THAT(mac.logLines("is not writable"),
              ElementsAre(::testing::StartsWith("WARN AppUninstaller: " + staged + " is not writable")));
  expectUntouched();
}

TEST_F(Uninstall, LooksIntoHiddenDirectoriesToo) {
  brennaIsInstalled();
  mac.files.addFile(path + "/Contents/.git/config", "");
  mac.files.setWritable(path + "/Contents/.git", false);
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.permissionDenied);
}

TEST_F(Uninstall, IsNotStoppedByALinkToAReadOnlyDirectory) {
  brennaIsInstalled();
  mac.files.addDirectory("/Library/Frozen/Inner");
  mac.files.setWritable("/Library/Frozen", false);
  mac.files.setWritable("/Library/Frozen/Inner", false);
  mac.files.addSymlink(path + "/Contents/Frozen", "/Library/Frozen");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_TRUE(mac.files.exists("/Library/Frozen/Inner"));
}

TEST_F(Uninstall, MentionsADirectoryThatItCannotLookInto) {
  brennaIsInstalled();
  mac.files.failNext(Operation::enumerate, staged + "/Contents/Resources", cocoa(257, "You may not look."));
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_EQ(story().front(),
            "WARN AppUninstaller: cannot enumerate " + staged + "/Contents/Resources: You may not look.");
}

TEST_F(Uninstall, GoesOnWhenTheBundleCannotBeWalked) {
  brennaIsInstalled();
  mac.files.failNext(Operation::enumerate, staged, cocoa(257));
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

TEST_F(Uninstall, RestoresAWholeBundleWhoseDeletionFails) {
  struct Row {
    Error error;
    std::string message;
    Flag flag;
  };
  for (const auto& row : {Row{cocoa(513), appManagement, Flag::permissionDenied},
                          Row{posix(1), appManagement, Flag::permissionDenied},
                          Row{cocoa(512, "The disk is on fire."),
                              "Failed to remove Kelo Brenna: The disk is on fire.", Flag::none}}) {
    brennaIsInstalled();
    mac.files.failNext(Operation::remove, staged, row.error);
    uninstall(Password::isNeverAskedFor);
    expectFailure(row.message, row.flag);
    expectUntouched();
    EXPECT_THAT(story(), Contains("ERROR AppUninstaller: removing the staged Kelo Brenna failed: " +
                                  row.error.localizedDescription));
    EXPECT_THAT(mac.logLines("lsregister"), IsEmpty());
  }
}

TEST_F(Uninstall, StrandsABundleThatLostItsInformation) {
  brennaIsInstalled();
  mac.files.failNext(Operation::remove, staged + "/Contents/Resources", cocoa(513));
  uninstall(Password::isNeverAskedFor);
  expectFailure(stranded, Flag::none);
  EXPECT_THAT(appsFolder(), ElementsAre(".Brenna.app.kelo-uninstall/"));
  EXPECT_FALSE(mac.files.exists(staged + "/Contents/Info.plist"));
  EXPECT_THAT(
      story(),
      ElementsAre("ERROR AppUninstaller: removing the staged Kelo Brenna failed: It can’t be done.",
                  "ERROR AppUninstaller: NOT restoring Kelo Brenna — the staged bundle at " + staged +
                      " is no longer complete; leaving it staged rather than putting a broken app back into "
                      "/Applications",
                  "INFO AppUninstaller: lsregister -u /Applications/Brenna.app exited 0",
                  "INFO AppUninstaller: " + stranded));
}

TEST_F(Uninstall, PutsBackOnlyABundleThatCouldStart) {
  struct Row {
    std::string name;
    std::function<void(SimulatedMachine&, const Path&)> spoil;
    bool goesBack;
  };
  const auto writePlist = [](const Json& value) {
    return [value](SimulatedMachine& m, const Path& at) {
      m.files.addFile(at + "/Contents/Info.plist", propertyListText(value));
    };
  };
  for (const auto& row : std::vector<Row>{
           {"whole", [](SimulatedMachine&, const Path&) {}, true},
           {"without resources",
            [](SimulatedMachine& m, const Path& at) { m.files.erase(at + "/Contents/Resources"); }, true},
           {"no Info.plist",
            [](SimulatedMachine& m, const Path& at) { m.files.erase(at + "/Contents/Info.plist"); }, false},
           {"broken Info.plist",
            [](SimulatedMachine& m, const Path& at) { m.files.addFile(at + "/Contents/Info.plist", "x"); },
            false},
           {"unreadable Info.plist",
            [](SimulatedMachine& m, const Path& at) {
              m.files.setReadable(at + "/Contents/Info.plist", false);
            },
            false},
           {"an array", writePlist(Json::array()), false},
           {"no executable named", writePlist(Json::object()), false},
           {"executable that is no text", writePlist({{"CFBundleExecutable", 7}}), false},
           {"executable that is another one", writePlist({{"CFBundleExecutable", "other"}}), false},
           {"no executable",
            [](SimulatedMachine& m, const Path& at) { m.files.erase(at + "/Contents/MacOS/app"); }, false}}) {
    SimulatedMachine fresh;
    fresh.addRegisteredApp(path, brenna());
    fresh.files.addFile(path + "/Contents/Resources/text", "text");
    row.spoil(fresh, path);
    const auto whole = fresh.files.snapshot(path);
    fresh.files.failNext(Operation::remove, staged, cocoa(513));
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    const auto ended = AppUninstaller::uninstall(brennaApp, false);
    EXPECT_EQ(fresh.files.exists(path), row.goesBack) << row.name;
    EXPECT_EQ(fresh.files.snapshot(row.goesBack ? path : staged), whole) << row.name;
    EXPECT_EQ(ended.errorMessage, row.goesBack ? appManagement : stranded) << row.name;
  }
}

TEST_F(Uninstall, ClearsAStrandedBundleWhenTheAppIsRemovedAgain) {
  brennaIsInstalled();
  mac.files.failNext(Operation::remove, staged + "/Contents/Resources", cocoa(513));
  uninstall(Password::isNeverAskedFor);
  brennaIsInstalled();
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

TEST_F(Uninstall, StrandsABundleThatCannotBeMovedBackAndLeavesItsRegistration) {
  brennaIsInstalled();
  mac.files.setWritable(path + "/Contents/Resources", false);
  mac.files.failAfter(1, Operation::move, staged, cocoa(512, "The disk is on fire."));
  uninstall(Password::isNeverAskedFor);
  expectFailure(stranded, Flag::none);
  EXPECT_EQ(mac.files.snapshot(staged), before);
  EXPECT_THAT(appsFolder(), ElementsAre(".Brenna.app.kelo-uninstall/"));
  EXPECT_THAT(mac.logLines("lsregister"), IsEmpty());
  EXPECT_THAT(story(), Contains("ERROR AppUninstaller: FAILED to restore Kelo Brenna from " + staged +
                                " to /Applications/Brenna.app: The disk is on fire."));
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
  EXPECT_EQ(asked, 2) << "after a no nobody is asked again";
  ASSERT_EQ(results.size(), 3U);
  EXPECT_TRUE(results[0].success);
  EXPECT_TRUE(results[1].cancelled && results[2].cancelled);
  EXPECT_EQ(results[2].errorMessage, "cancelled");
  EXPECT_THAT(mac.logLines("Starting uninstall"), ::testing::SizeIs(1));
}

}  // namespace
}  // namespace installer::testing
