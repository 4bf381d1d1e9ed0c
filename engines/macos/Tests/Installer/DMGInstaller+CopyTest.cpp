// The copy, as the user and as administrator, and the removal of an invalid copy.
#include <fmt/format.h>

#include "Installer/DMGInstallerStory.h"

namespace installer::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class CopyBundle : public DMGInstallerStory {
 protected:
  const std::string refused =
      "Admin credentials required to install Kelo Brenna. Installation was cancelled.";
  const std::string removedAgain =
      "Kelo Brenna could not be verified after installation, so it was removed. Any previous version was "
      "replaced and "
      "is gone; download the installer again to reinstall.";

  void SetUp() override { theImageHoldsBrenna(); }
  void anOldCopyIsThere() { mac.addRegisteredApp(destination, brenna("1.0", "old binary")); }
  void theCopyIsNotGenuine() { mac.verdicts.refuse(SimulatedVerdicts::Check::requirement, destination); }
};

TEST_F(CopyBundle, WithoutWritePermissionRunsOneLineAsAdministrator) {
  mac.files.setWritable("/Applications", false);
  install();
  expectInstalledAt(destination);
  EXPECT_EQ(mac.administrator.commandLines(),
            (Lines{"/usr/bin/ditto --noqtn '/Volumes/Kelo Brenna/Brenna.app' '/Applications/Brenna.app' && "
                   "/usr/sbin/chown -R 501:20 '/Applications/Brenna.app'"}));
  EXPECT_FALSE(mac.administrator.calledOffMainThread());
  EXPECT_THAT(
      mac.logLines("DMGInstaller:"),
      ElementsAre("WARN DMGInstaller: Permission denied copying app — will retry with admin privileges",
                  "WARN DMGInstaller: You don’t have permission to change “Brenna.app”.",
                  "INFO DMGInstaller: Requesting admin privileges to install Kelo Brenna"));
}

TEST_F(CopyBundle, OverACopyThatMayNotBeRemovedDoesAllInOneLine) {
  anOldCopyIsThere();
  mac.files.setWritable("/Applications", false);
  install();
  expectInstalledAt(destination);
  EXPECT_EQ(mac.administrator.commandLines(),
            (Lines{"/bin/rm -rf '/Applications/Brenna.app' && "
                   "/usr/bin/ditto --noqtn '/Volumes/Kelo Brenna/Brenna.app' '/Applications/Brenna.app' && "
                   "/usr/sbin/chown -R 501:20 '/Applications/Brenna.app'"}));
  EXPECT_THAT(
      mac.logLines("DMGInstaller:"),
      ElementsAre("INFO DMGInstaller: Upgrading Kelo Brenna from v1.0 to v2.0",
                  "WARN DMGInstaller: Permission denied removing existing app — will retry with admin "
                  "privileges",
                  "WARN DMGInstaller: You don’t have permission to change “Brenna.app”.",
                  "INFO DMGInstaller: Requesting admin privileges to install Kelo Brenna"));
}

TEST_F(CopyBundle, AsRootChangesNoOwner) {
  mac.runAsRoot();
  mac.files.failNext(Operation::copy, destination, noWritePermission());
  install();
  expectInstalledAt(destination);
  EXPECT_EQ(mac.administrator.commandLines(),
            (Lines{"/usr/bin/ditto --noqtn '/Volumes/Kelo Brenna/Brenna.app' '/Applications/Brenna.app'"}));
}

TEST_F(CopyBundle, HandsAnyNameToTheShellAsOneWord) {
  struct Row {
    std::string name;
    std::string quoted;
  };
  for (const auto& row :
       {Row{"Brenna's.app", R"(Brenna'\''s.app)"}, Row{"Brenna\nrm -rf ~\n.app", "Brenna\nrm -rf ~\n.app"},
        Row{"Brenna\"; $(reboot) `id` \\.app", "Brenna\"; $(reboot) `id` \\.app"}}) {
    startAfresh(mac);
    mac.images.add(image, mount, [&](SimulatedFileSystem&, const Path& at) {
      mac.addApp(joined(at, row.name), brenna("2.0"));
    });
    mac.addApp("/Applications/" + row.name, brenna("1.0", "old binary"));
    mac.files.setWritable("/Applications", false);
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    const auto ended = DMGInstaller::installFromDMG(image, brennaApp);
    EXPECT_EQ(ended.installedPath, "/Applications/" + row.name) << ended.errorMessage.value_or("");
    EXPECT_EQ(mac.administrator.commandLines(),
              Lines{fmt::format("/bin/rm -rf '/Applications/{0}' && "
                                "/usr/bin/ditto --noqtn '/Volumes/Kelo Brenna/{0}' '/Applications/{0}' && "
                                "/usr/sbin/chown -R 501:20 '/Applications/{0}'",
                                row.quoted)});
  }
}

TEST_F(CopyBundle, BesideAnAppStoreVariantAsAdministratorTakesTheNumberedName) {
  mac.addApp(destination, fromAppStore({.identifier = "com.kelo.store"}));
  mac.files.setWritable("/Applications", false);
  install();
  expectInstalledAt("/Applications/Brenna 2.app");
  EXPECT_THAT(mac.administrator.commandLines(),
              ElementsAre(::testing::HasSubstr("ditto --noqtn '/Volumes/Kelo Brenna/Brenna.app' "
                                               "'/Applications/Brenna 2.app'")));
}

TEST_F(CopyBundle, WithARefusedPromptLeavesTheOldCopy) {
  anOldCopyIsThere();
  mac.files.setWritable("/Applications", false);
  mac.administrator.dismissesNext();
  install();
  expectFailure(refused);
  expectDetachedOnce();
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "old binary");
}

TEST_F(CopyBundle, ThatTheAdministratorOnlyClaimsIsNoInstall) {
  anOldCopyIsThere();
  mac.files.setWritable("/Applications", false);
  mac.administrator.succeedsWithoutEffectNext();
  install();
  expectFailure(refused);
  expectDetachedOnce();
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "old binary");
}

TEST_F(CopyBundle, AsAdministratorOverACopyThatSaysTheSameOfItselfIsAnInstall) {
  theImageHolds({{"Brenna.app", brenna(std::nullopt)}});
  mac.addRegisteredApp(destination, brenna(std::nullopt, "old binary"));
  mac.files.setWritable("/Applications", false);
  install();
  expectInstalledAt(destination);
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "new binary");
}

TEST_F(CopyBundle, WithAFailedCommandLineSaysTheSameAsAfterARefusal) {
  anOldCopyIsThere();
  mac.files.setWritable("/Applications", false);
  mac.files.failNext(Operation::copy, destination,
                     cocoa(CocoaError::fileWriteOutOfSpace));  // for ditto's copy
  install();
  expectFailure(refused);
  expectDetachedOnce();
  EXPECT_FALSE(mac.files.exists(destination)) << "what the line had removed stays removed";
}

TEST_F(CopyBundle, ThatFailsForAnotherReasonEndsTheInstallWithoutAPrompt) {
  anOldCopyIsThere();
  mac.files.failNext(Operation::copy, destination,
                     cocoa(CocoaError::fileWriteOutOfSpace, "The disk is full."));
  install();
  expectFailure("Failed to install Kelo Brenna: The disk is full.");
  expectDetachedOnce();
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
  EXPECT_FALSE(mac.files.exists(destination)) << "the old copy is gone";
}

TEST_F(CopyBundle, ThatIsNotGenuineIsRemovedAndKeepsItsQuarantineUntilThen) {
  anOldCopyIsThere();
  theCopyIsNotGenuine();
  install();
  expectFailure(removedAgain, ErrorCode::signatureFailed);
  expectDetachedOnce();
  EXPECT_THAT(appsFolder(), IsEmpty());
  EXPECT_THAT(mac.programs.starts(mac.paths.xattr), IsEmpty());
  EXPECT_THAT(mac.workspace.registeredBundles(), IsEmpty());
  EXPECT_EQ(story().back(),
            "ERROR DMGInstaller: the installed copy at /Applications/Brenna.app does not satisfy the "
            "signing requirement — removing it rather than leaving unverified code in /Applications");
}

// Another installer, or the user, may have put another item there during the verification.
TEST_F(CopyBundle, ThatIsNotGenuineTakesNothingElseWithIt) {
  int looks = 0;
  mac.programs.on(mac.paths.codesign).does([&](const Arguments& arguments) {
    if (arguments.back() != destination) return ProgramExit{};
    ++looks;
    mac.files.erase(destination);
    mac.addApp(destination, brenna("3.0", "someone else's"));
    return ProgramExit{1, "", ""};
  });
  install();
  EXPECT_EQ(looks, 1);
  expectFailure(removedAgain, ErrorCode::signatureFailed);
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "someone else's");
  EXPECT_EQ(story().back(),
            "INFO DMGInstaller: /Applications/Brenna.app is no longer the copy that was made — "
            "leaving it alone");
}

// Another process replaces the bundle after its verification; the link's target could change afterwards.
TEST_F(CopyBundle, ThatIsALinkIsRemovedHoweverGenuineItsTarget) {
  const Path elsewhere = "/Users/tester/Brenna.app";
  mac.addApp(elsewhere, brenna("2.0"));
  mac.programs.on(mac.paths.codesign).doesNext([&](const Arguments& /*arguments*/) {
    mac.files.erase(source);
    mac.files.addSymlink(source, elsewhere);
    return ProgramExit{};
  });
  install();
  expectFailure(removedAgain, ErrorCode::signatureFailed);
  EXPECT_FALSE(mac.files.exists(destination));
  EXPECT_EQ(mac.files.read(elsewhere + "/Contents/MacOS/app"), "new binary");
}

TEST_F(CopyBundle, ThatIsNotGenuineIsRemovedAsAdministratorWhenTheUserMayNot) {
  mac.files.setWritable("/Applications", false);
  theCopyIsNotGenuine();
  install();
  expectFailure(removedAgain, ErrorCode::signatureFailed);
  expectDetachedOnce();
  ASSERT_THAT(mac.administrator.commandLines(), SizeIs(2));
  EXPECT_EQ(mac.administrator.commandLines()[1], "/bin/rm -rf '/Applications/Brenna.app'");
  EXPECT_EQ(mac.administrator.scriptsMade(), 1U) << "one prompt for both";
  EXPECT_THAT(appsFolder(), IsEmpty());
}

TEST_F(CopyBundle, ThatIsNotGenuineAndCannotBeRemovedStaysQuarantined) {
  const std::string stays =
      "ERROR DMGInstaller: could not remove /Applications/Brenna.app — it remains QUARANTINED, so "
      "Gatekeeper will still challenge it on launch";
  theCopyIsNotGenuine();
  mac.administrator.dismissesAlways();
  mac.files.failNext(Operation::remove, destination, noWritePermission());
  install();
  expectFailure(removedAgain, ErrorCode::signatureFailed);
  EXPECT_THAT(mac.administrator.commandLines(), ElementsAre("/bin/rm -rf '/Applications/Brenna.app'"));
  EXPECT_EQ(story().back(), stays);
  EXPECT_TRUE(mac.files.exists(destination));
  EXPECT_THAT(mac.programs.starts(mac.paths.xattr), IsEmpty());
}

TEST_F(CopyBundle, ThatIsNotGenuineTellsWhatStoppedItsRemoval) {
  theCopyIsNotGenuine();
  mac.files.failNext(Operation::remove, destination,
                     cocoa(CocoaError::fileWriteUnknown, "The disk is on fire."));
  install();
  expectFailure(removedAgain, ErrorCode::signatureFailed);
  expectDetachedOnce();
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
  const auto lines = story();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2],
            "WARN DMGInstaller: could not remove /Applications/Brenna.app: The disk is on fire.");
  EXPECT_EQ(lines.back(),
            "ERROR DMGInstaller: could not remove /Applications/Brenna.app — it remains QUARANTINED, so "
            "Gatekeeper will still challenge it on launch");
}

TEST_F(CopyBundle, StaysASuccessWhenTheQuarantineCannotBeTakenOff) {
  mac.programs.on(mac.paths.xattr).exits(1, "", "xattr: [Errno 1] Not permitted\n");
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(
      mac.logLines("DMGInstaller:"),
      ElementsAre(
          "INFO DMGInstaller: xattr exited 1 for /Applications/Brenna.app — the app is installed but may "
          "prompt on first launch",
          "INFO DMGInstaller: xattr: xattr: [Errno 1] Not permitted"));
}

TEST_F(CopyBundle, StaysASuccessWhenTheQuarantineToolCannotBeStarted) {
  mac.programs.on(mac.paths.xattr).cannotLaunch("no xattr");
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(mac.logLines("DMGInstaller:"),
              ElementsAre("WARN DMGInstaller: could not run xattr for /Applications/Brenna.app: no xattr"));
}

TEST_F(CopyBundle, DetachesBeforeItReports) {
  install();
  const auto lines = mac.programs.commandLines();
  EXPECT_EQ(lines.back(), "hdiutil detach /Volumes/Kelo Brenna -force -quiet");
  EXPECT_EQ(story().back(), "INFO Telemetry disabled (no user consent flow yet) — skipping report");
}

// After any single failure the destination has the old app, the new app or nothing, never a partial app.
TEST_F(CopyBundle, NeverLeavesHalfAnAppWhateverFails) {
  struct Step {
    Operation operation;
    Path path;
  };
  const std::vector<Step> steps{{Operation::list, mount},
                                {Operation::readFile, source + "/Contents/Info.plist"},
                                {Operation::readFile, destination + "/Contents/Info.plist"},
                                {Operation::enumerate, source},
                                {Operation::enumerate, destination},
                                {Operation::remove, destination},
                                {Operation::copy, destination}};
  for (const auto& step : steps) {
    for (const std::int64_t code : {4, 257, 512, 513, 516, 640, 642}) {
      for (const char* prompt : {"granted", "dismissed", "failed", "without effect"}) {
        for (const bool genuine : {true, false}) {
          startAfresh(mac);
          const std::string row = fmt::format("step {} code {} prompt {} genuine {}",
                                              static_cast<int>(step.operation), code, prompt, genuine);
          mac.images.add(image, mount,
                         [this](SimulatedFileSystem&, const Path&) { mac.addApp(source, brenna("2.0")); });
          mac.addRegisteredApp(destination, brenna("1.0", "old binary"));
          const auto old = mac.files.snapshot(destination);
          if (!genuine) mac.verdicts.refuse(SimulatedVerdicts::Check::requirement, destination);
          if (prompt == std::string_view{"dismissed"}) mac.administrator.dismissesNext();
          if (prompt == std::string_view{"failed"}) mac.administrator.failsNext(-1);
          if (prompt == std::string_view{"without effect"}) mac.administrator.succeedsWithoutEffectNext();
          mac.files.failNext(step.operation, step.path, cocoa(code));

          const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
          const auto ended = DMGInstaller::installFromDMG(image, brennaApp);

          EXPECT_EQ(mac.images.history(), (Lines{"attach " + mount, "detach " + mount})) << row;
          if (!mac.files.exists(destination)) {
            EXPECT_FALSE(ended.success) << row;
            continue;
          }
          const auto left = mac.files.snapshot(destination);
          const bool isOld = left == old;
          const bool isNew = left.size() == old.size() && !isOld &&
                             mac.files.read(destination + "/Contents/MacOS/app") == "new binary";
          EXPECT_TRUE(isOld || isNew) << row;
        }
      }
    }
  }
}

}  // namespace
}  // namespace installer::test
