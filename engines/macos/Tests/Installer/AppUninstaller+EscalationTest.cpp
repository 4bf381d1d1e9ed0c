// Removal as administrator: granted, refused, failed, and without the effect it claims.
#include "Installer/AppUninstallerStory.h"

namespace installer::testing {
namespace {

using namespace std::chrono_literals;
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

TEST_F(EscalatedRemoval, QuotesAnApostropheInTheName) {
  mac.files.erase(path);
  mac.addRegisteredApp("/Applications/Brenna's.app", brenna());
  mac.files.setWritable("/Applications", false);
  uninstall(Password::mayBeAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_EQ(mac.administrator.commandLines(), Lines{R"(/bin/rm -rf '/Applications/Brenna'\''s.app')"});
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

// Each single file operation fails in turn, with each kind of error and each end of the prompt. A deletion
// that has begun may take parts of a bundle with it, so what is put back then has at least what it starts by.
TEST(RemovalTransaction, LeavesTheWholeAppOrNothingAtTheAppsPathWhateverFails) {
  const Path path = "/Applications/Brenna.app";
  const Path staged = "/Applications/.Brenna.app.kelo-uninstall";
  const Lines inside{"",
                     "/Contents",
                     "/Contents/Info.plist",
                     "/Contents/MacOS",
                     "/Contents/MacOS/app",
                     "/Contents/Resources",
                     "/Contents/Resources/text"};
  struct Step {
    Operation operation;
    Path path;
    int successesFirst = 0;
  };
  std::vector<Step> steps{{Operation::move, path},
                          {Operation::move, path, 1},
                          {Operation::readFile, staged + "/Contents/Info.plist"}};
  for (const auto& part : inside) {
    steps.push_back({Operation::remove, staged + part});
    steps.push_back({Operation::enumerate, staged + part});
  }
  int rows = 0;
  for (const auto& step : steps) {
    for (const auto& error : {Error{"NSCocoaErrorDomain", 513, "e", nullptr},
                              {"NSCocoaErrorDomain", 512, "e", nullptr},
                              {"NSPOSIXErrorDomain", 13, "e", nullptr}}) {
      for (const std::string prompt : {"never", "granted", "dismissed", "failed", "without effect"}) {
        for (const bool hasReadOnlyDirectory : {false, true}) {
          SimulatedMachine mac;
          const auto row = fmt::format("operation {} of {} after {}, code {}, prompt {}, read-only {}",
                                       static_cast<int>(step.operation), step.path, step.successesFirst,
                                       error.code, prompt, hasReadOnlyDirectory);
          const AppInfo app = *KeloAppProvider::shared().app(AppIdentifier::brenna);
          mac.addRegisteredApp(path, {.identifier = app.installerBundleIdentifier});
          mac.files.addFile(path + "/Contents/Resources/text", "text");
          if (hasReadOnlyDirectory) mac.files.setWritable(path + "/Contents/Resources", false);
          const auto whole = mac.files.snapshot(path);
          if (prompt == "dismissed") mac.administrator.dismissesNext();
          if (prompt == "failed") mac.administrator.failsNext(1);
          if (prompt == "without effect") mac.administrator.succeedsWithoutEffectNext();
          mac.files.failAfter(step.successesFirst, step.operation, step.path, error);

          const auto result = AppUninstaller::uninstall(app, prompt != "never");
          ++rows;

          const bool deletionBegan = !mac.logLines("removing the staged").empty();
          if (!mac.files.exists(path)) {
            const bool isStranded =
                result.errorMessage &&
                result.errorMessage->find("remain at " + staged + ".") != std::string::npos;
            EXPECT_TRUE(result.success || isStranded) << row;
            EXPECT_EQ(result.success, !isStranded) << row;
            EXPECT_TRUE(!result.success || !mac.files.exists(staged)) << row;
            continue;
          }
          EXPECT_FALSE(result.success) << row;
          EXPECT_FALSE(mac.files.exists(staged)) << row << ": the app is never in two places";
          EXPECT_TRUE(deletionBegan || mac.files.snapshot(path) == whole) << row;
          EXPECT_TRUE(mac.files.exists(path + "/Contents/Info.plist")) << row;
          EXPECT_TRUE(mac.files.exists(path + "/Contents/MacOS/app")) << row;
        }
      }
    }
  }
  EXPECT_EQ(rows, 17 * 3 * 5 * 2);
}

}  // namespace
}  // namespace installer::testing
