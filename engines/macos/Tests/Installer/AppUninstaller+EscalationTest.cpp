// Removal as administrator: granted, refused, failed, and reported as a success without an effect.
#include "Installer/AppUninstallerStory.h"

namespace installer::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EscalatedRemoval : public AppUninstallerStory {
 protected:
  const std::string removeStaged = "/bin/rm -rf '/Applications/.Brenna.app.kelo-uninstall'";
  const std::string removePath = "/bin/rm -rf '/Applications/Brenna.app'";

  void SetUp() override { brennaIsInstalled(); }
  void aDirectoryInsideIsReadOnly() { mac.files.setWritable(path + "/Contents/Resources", false); }
};

TEST_F(EscalatedRemoval, OfTheAppItselfWhenItCannotBeStaged) {
  mac.files.setWritable("/Applications", false);
  uninstall(Password::mayBeAskedFor);
  expectRemoved();
  EXPECT_EQ(mac.administrator.commandLines(), Lines{removePath});
  EXPECT_THAT(
      story(),
      ElementsAre(
          "ERROR AppUninstaller: could not stage Kelo Brenna out of /Applications/Brenna.app: You don’t "
          "have permission to change “.Brenna.app.kelo-uninstall”.",
          "INFO AppUninstaller: escalating removal of Kelo Brenna at /Applications/Brenna.app",
          "INFO AppUninstaller: Successfully removed Kelo Brenna from /Applications/Brenna.app with "
          "admin privileges",
          "INFO AppUninstaller: lsregister -u /Applications/Brenna.app exited 0"));
}

TEST_F(EscalatedRemoval, OfTheStagedBundleWhenADirectoryInsideIsReadOnly) {
  aDirectoryInsideIsReadOnly();
  uninstall(Password::mayBeAskedFor);
  expectRemoved();
  EXPECT_EQ(mac.administrator.commandLines(), Lines{removeStaged});
  EXPECT_THAT(
      story(),
      ElementsAre("WARN AppUninstaller: " + staged +
                      "/Contents/Resources is not writable — an unprivileged "
                      "delete of Kelo Brenna would stop partway, so escalating instead",
                  "INFO AppUninstaller: escalating removal of Kelo Brenna at " + staged,
                  "INFO AppUninstaller: Successfully removed Kelo Brenna from /Applications/Brenna.app with "
                  "admin privileges",
                  "INFO AppUninstaller: lsregister -u /Applications/Brenna.app exited 0",
                  "INFO AppUninstaller: lsregister -u " + staged + " exited 0"));
}

TEST_F(EscalatedRemoval, OfTheRestWhateverStoppedTheDeletion) {
  for (const auto& error : {cocoa(513), cocoa(512), posix(5)}) {
    brennaIsInstalled();
    mac.files.failNext(Operation::remove, staged + "/Contents/Resources", error);
    uninstall(Password::mayBeAskedFor);
    expectRemoved();
    EXPECT_EQ(mac.administrator.commandLines().back(), removeStaged);
  }
}

TEST_F(EscalatedRemoval, WithARefusedPromptLeavesTheAppInstalled) {
  aDirectoryInsideIsReadOnly();
  mac.administrator.dismissesNext();
  uninstall(Password::mayBeAskedFor);
  expectFailure(leftInstalled, Flag::authCancelled);
  expectUntouched();
  const auto lines = story();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], "INFO AppUninstaller: restored Kelo Brenna to /Applications/Brenna.app");
  EXPECT_EQ(lines.back(), "INFO AppUninstaller: " + leftInstalled);
  EXPECT_THAT(mac.logLines("lsregister"), IsEmpty());
}

TEST_F(EscalatedRemoval, DeletesTheRestOfAnInterruptedRemoval) {
  const Path rest = "/Applications/.Brenna.app.kelo-uninstall";
  ASSERT_TRUE(mac.files.removeItem("/Applications/Brenna.app"));
  mac.files.addFile(rest + "/Contents/Resources/text");
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.alreadyAbsent);
  EXPECT_TRUE(mac.files.exists(rest));
  mac.files.addFile(rest + ".1/Contents/Resources/text");
  mac.administrator.dismissesNext();
  uninstall(Password::mayBeAskedFor);
  EXPECT_TRUE(result.alreadyAbsent);
  EXPECT_TRUE(mac.files.exists(rest));
  uninstall(Password::mayBeAskedFor);
  EXPECT_TRUE(result.alreadyAbsent);
  EXPECT_EQ(mac.administrator.commandLines().size(), 3U);
  EXPECT_FALSE(mac.files.exists(rest));
  EXPECT_FALSE(mac.files.exists(rest + ".1"));
}

TEST_F(EscalatedRemoval, OfAnUnstagedAppWithARefusedPromptHasNothingToPutBack) {
  mac.files.setWritable("/Applications", false);
  mac.administrator.dismissesNext();
  uninstall(Password::mayBeAskedFor);
  expectFailure(leftInstalled, Flag::authCancelled);
  expectUntouched();
  EXPECT_THAT(mac.logLines("restor"), IsEmpty());
}

TEST_F(EscalatedRemoval, ThatFailsPutsTheAppBackAndCountsAsAMatterOfPermission) {
  aDirectoryInsideIsReadOnly();
  mac.administrator.failsNext(1);
  uninstall(Password::mayBeAskedFor);
  expectFailure(removalFailed, Flag::permissionDenied);
  expectUntouched();
  EXPECT_EQ(story().back(), "INFO AppUninstaller: " + removalFailed);
}

TEST_F(EscalatedRemoval, ThatLeavesThePathIsAFailureWhateverItReports) {
  mac.files.setWritable("/Applications", false);
  mac.administrator.succeedsWithoutEffectNext();
  uninstall(Password::mayBeAskedFor);
  expectFailure(removalFailed, Flag::permissionDenied);
  expectUntouched();
}

TEST_F(EscalatedRemoval, WithoutAnyScriptAtAllIsFoundOutByLookingAtTheDisk) {
  aDirectoryInsideIsReadOnly();
  mac.administrator.cannotMakeScripts();
  uninstall(Password::mayBeAskedFor);
  expectFailure(removalFailed, Flag::permissionDenied);
  expectUntouched();
}

TEST_F(EscalatedRemoval, ThatReportsAFailureAfterDeletingAllIsStranded) {
  aDirectoryInsideIsReadOnly();
  mac.administrator.failsAfterRunningNext(1);
  uninstall(Password::mayBeAskedFor);
  expectFailure(stranded, Flag::none);
  EXPECT_THAT(appsFolder(), IsEmpty());
}

TEST_F(EscalatedRemoval, OfAPartlyDeletedBundleWithARefusedPromptStrandsIt) {
  mac.files.failNext(Operation::remove, staged + "/Contents/Resources", cocoa(513));
  mac.administrator.dismissesNext();
  uninstall(Password::mayBeAskedFor);
  expectFailure(stranded, Flag::none);
  EXPECT_THAT(appsFolder(), ElementsAre(".Brenna.app.kelo-uninstall/"));
}

TEST_F(EscalatedRemoval, WhoseWayBackIsBlockedStrandsTheBundle) {
  aDirectoryInsideIsReadOnly();
  mac.administrator.dismissesNext();
  mac.files.failAfter(1, Operation::move, path,
                      cocoa(CocoaError::fileWriteFileExists, "Something is there."));
  uninstall(Password::mayBeAskedFor);
  expectFailure(stranded, Flag::none);
  EXPECT_EQ(mac.files.snapshot(staged), before);
  EXPECT_THAT(story(), Contains("ERROR AppUninstaller: FAILED to restore Kelo Brenna from " + staged +
                                " to /Applications/Brenna.app: Something is there."));
}

TEST_F(EscalatedRemoval, HandsAnyNameToTheShellAsOneWord) {
  struct Row {
    std::string name;
    std::string quoted;
  };
  for (const auto& row :
       {Row{"Brenna's.app", R"('/Applications/Brenna'\''s.app')"},
        Row{"Brenna\nrm -rf ~\n.app", "'/Applications/Brenna\nrm -rf ~\n.app'"},
        Row{"Brenna\"; $(reboot) `id` \\.app", "'/Applications/Brenna\"; $(reboot) `id` \\.app'"},
        Row{"-rf.app", "'/Applications/-rf.app'"}}) {
    startAfresh(mac);
    mac.addRegisteredApp("/Applications/" + row.name, brenna());
    mac.files.setWritable("/Applications", false);
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    EXPECT_TRUE(AppUninstaller::uninstall(brennaApp, true).success) << row.name;
    EXPECT_EQ(mac.administrator.commandLines(), Lines{"/bin/rm -rf " + row.quoted});
    EXPECT_THAT(mac.files.tree("/Applications"), IsEmpty()) << row.name;
  }
}

TEST_F(EscalatedRemoval, OfSeveralAppsUsesOneScript) {
  mac.addRegisteredApp("/Applications/Kelo Rulo.app", {.identifier = "com.kelo.rulo"});
  mac.files.setWritable("/Applications", false);
  const auto& catalog = KeloAppProvider::shared();
  AppUninstaller::uninstallAll({*catalog.app(AppIdentifier::brenna), *catalog.app(AppIdentifier::rulo)},
                               true);
  EXPECT_THAT(appsFolder(), IsEmpty());
  EXPECT_EQ(mac.administrator.scriptsMade(), 1U);
}

TEST_F(EscalatedRemoval, NeverHappensWhenItIsNotAllowed) {
  for (const auto operation : {Operation::move, Operation::remove}) {
    brennaIsInstalled();
    mac.files.failNext(operation, operation == Operation::move ? path : staged, cocoa(513));
    uninstall(Password::isNeverAskedFor);
    expectFailure(appManagement, Flag::permissionDenied);
    expectUntouched();
  }
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
  EXPECT_EQ(mac.administrator.scriptsMade(), 0U);
}

}  // namespace
}  // namespace installer::test
