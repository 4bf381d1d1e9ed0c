// The rest of an interrupted removal at the expected path.
#include "Installer/AppUninstallerStory.h"

namespace installer::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

class Husk : public AppUninstallerStory {
 protected:
  const std::string found =
      "WARN AppUninstaller: found a husk of Kelo Brenna at /Applications/Brenna.app — a previous "
      "removal left it partly deleted; clearing it";
  const std::string absent = "INFO AppUninstaller: Kelo Brenna is not installed — nothing to remove";
};

TEST_F(Husk, WithoutInformationIsRemovedLikeAnApp) {
  mac.addApp(path, {.infoPlist = false});
  mac.runningApps.launch(kBrennaIdentifier, "Brenna", 1);
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_FALSE(mac.runningApps.isRunning(1));
  EXPECT_THAT(mac.files.changes(), Contains("move /Applications/Brenna.app -> " + staged));
  EXPECT_EQ(story().front(), found);
}

TEST_F(Husk, WithUnreadableInformationIsRemovedToo) {
  mac.files.addFile(path + "/Contents/Info.plist", "not a property list");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

TEST_F(Husk, WithoutAnIdentifierIsRemovedToo) {
  mac.addApp(path, {.version = "1.0"});
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

TEST_F(Husk, IsAskedForWhenItMayNotBeRemoved) {
  mac.addApp(path, {.infoPlist = false});
  mac.files.setWritable("/Applications", false);
  uninstall(Password::isNeverAskedFor);
  expectFailure(appManagement, Flag::permissionDenied);
  uninstall(Password::mayBeAskedFor);
  expectRemoved();
}

TEST_F(Husk, ThatIsNotRestoredWhenItsDeletionFailsStaysStaged) {
  mac.addApp(path, {.infoPlist = false});
  mac.files.failNext(Operation::remove, staged, cocoa(513));
  uninstall(Password::isNeverAskedFor);
  expectFailure(stranded, Flag::none);
}

TEST_F(Husk, IsNoneWhenItIsACompleteBundleOfSomethingElse) {
  mac.addApp(path, {.identifier = kFederalIdentifier});
  uninstall(Password::mayBeAskedFor);
  expectAlreadyAbsent();
  EXPECT_TRUE(mac.files.exists(path + "/Contents/MacOS/app"));
  EXPECT_THAT(
      story(),
      ElementsAre("INFO AppUninstaller: /Applications/Brenna.app is another app's bundle — leaving it alone",
                  absent));
}

TEST_F(Husk, IsNoneWhenItHasAnAppStoreReceipt) {
  mac.addApp(path, {.appStoreReceipt = true, .infoPlist = false});
  uninstall(Password::mayBeAskedFor);
  expectAlreadyAbsent();
  EXPECT_TRUE(mac.files.exists(path));
  EXPECT_THAT(story(), ElementsAre(absent));
}

TEST_F(Husk, IsNoneWhenAFileStandsThere) {
  mac.files.addFile(path, "a file");
  uninstall(Password::mayBeAskedFor);
  expectAlreadyAbsent();
  EXPECT_EQ(mac.files.read(path), "a file");
}

TEST_F(Husk, IsRecognisedFromTheDiskAndNotFromAnEarlierReading) {
  brennaIsInstalled();
  ASSERT_NE(ExistingAppDetector::cachedBundle(path), nullptr);
  mac.files.erase(path + "/Contents/Info.plist");
  mac.workspace.removeRegistration(kBrennaIdentifier);
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

}  // namespace
}  // namespace installer::test
