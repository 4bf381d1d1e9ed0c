// Existing copies on the machine.
#include "Installer/DMGInstallerStory.h"
#include "Utils/DiskRequirement.h"

namespace installer::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ExistingCopy : public DMGInstallerStory {
 protected:
  static constexpr const char* kMountLine =
      "INFO Mounting DMG for Kelo Brenna at /private/tmp/tester/brenna_installer.dmg";

  void expectNothingCopied(const Path& path) {
    EXPECT_TRUE(result.success);
    EXPECT_TRUE(result.alreadyCurrent);
    EXPECT_EQ(result.installedPath, path);
    EXPECT_EQ(result.errorMessage, std::nullopt);
    expectDetachedOnce();
    EXPECT_THAT(mac.logLines("Telemetry"), IsEmpty());
  }
};

TEST_F(ExistingCopy, OfTheSameVersionIsQuitAndKept) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp("/Applications/Tools/Brenna.app", brenna("2.0", "old binary"));
  mac.runningApps.launch(kBrennaIdentifier, "Kelo Brenna", 4711);
  install();
  expectNothingCopied("/Applications/Tools/Brenna.app");
  EXPECT_FALSE(mac.runningApps.isRunning(4711));
  EXPECT_EQ(mac.files.read("/Applications/Tools/Brenna.app/Contents/MacOS/app"), "old binary");
  EXPECT_EQ(story().back(),
            "INFO DMGInstaller: Kelo Brenna v2.0 is already installed (same version) — skipping");
}

TEST_F(ExistingCopy, OfANewerVersionIsKept) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, brenna("2.0.1", "old binary"));
  mac.addRegisteredApp(destination, brenna("10.0", "old binary"));
  install();
  expectNothingCopied(destination);
  EXPECT_EQ(story().back(),
            "INFO DMGInstaller: Kelo Brenna v10.0 is newer than installer v2.0 — skipping downgrade");
}

TEST_F(ExistingCopy, FromTheAppStoreCountsAsCurrentToo) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, fromAppStore(brenna("2.0")));
  install();
  expectNothingCopied(destination);
}

TEST_F(ExistingCopy, OfAnOlderVersionIsReplaced) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, brenna("1.9", "old binary"));
  mac.files.addFile(destination + "/Contents/Resources/old.txt", "only in the old one");
  install();
  expectInstalledAt(destination);
  EXPECT_FALSE(mac.files.exists(destination + "/Contents/Resources/old.txt"));
  EXPECT_THAT(story(), ElementsAre(kMountLine, "INFO DMGInstaller: Upgrading Kelo Brenna from v1.9 to v2.0",
                                   "INFO Kelo Brenna installed at /Applications/Brenna.app",
                                   "INFO Telemetry disabled (no user consent flow yet) — skipping report"));
}

TEST_F(ExistingCopy, WithoutAReadableVersionIsReplacedWithoutAWordOfUpgrading) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, brenna(std::nullopt, "old binary"));
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(mac.logLines("Upgrading"), IsEmpty());
}

TEST_F(ExistingCopy, IsReplacedByAPackageWithoutAReadableVersion) {
  theImageHolds({{"Brenna.app", brenna(std::nullopt)}});
  mac.addRegisteredApp(destination, brenna("99.0", "old binary"));
  install();
  expectInstalledAt(destination);
}

TEST_F(ExistingCopy, ElsewhereAmongTheApplicationsIsRemoved) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp("/Applications/Old Brenna.app", brenna("1.0", "old binary"));
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(appsFolder(), ElementsAre("Brenna.app/"));
  EXPECT_THAT(story(),
              ElementsAre(kMountLine, "INFO DMGInstaller: Upgrading Kelo Brenna from v1.0 to v2.0",
                          "INFO DMGInstaller: Found existing Kelo Brenna at different path: "
                          "/Applications/Old Brenna.app (bundle ID: com.kelo.brenna.mac)",
                          "INFO DMGInstaller: Removing existing copy at /Applications/Old Brenna.app",
                          "INFO Kelo Brenna installed at /Applications/Brenna.app",
                          "INFO Telemetry disabled (no user consent flow yet) — skipping report"));
}

TEST_F(ExistingCopy, ElsewhereThatCannotBeRemovedStaysWithoutAWordAndWithoutAPrompt) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp("/Applications/Old Brenna.app", brenna("1.0", "old binary"));
  mac.files.failNext(Operation::remove, "/Applications/Old Brenna.app", noWritePermission());
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(appsFolder(), ElementsAre("Brenna.app/", "Old Brenna.app/"));
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
  EXPECT_THAT(mac.logLines("You may not."), IsEmpty());
}

TEST_F(ExistingCopy, ElsewhereFromTheAppStoreRefusesTheInstall) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp("/Applications/Store Brenna.app", fromAppStore(brenna("1.0")));
  install();
  expectFailure(
      "Kelo Brenna is installed from the Mac App Store at /Applications/Store Brenna.app. Please remove it "
      "from Launchpad first, then retry.");
  expectDetachedOnce();
  EXPECT_THAT(appsFolder(), ElementsAre("Store Brenna.app/"));
}

TEST_F(ExistingCopy, ElsewhereWithALinkToItAtTheDestinationIsReplacedThere) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp("/Applications/Tools/Brenna.app", brenna("1.0", "old binary"));
  mac.files.addSymlink(destination, "Tools/Brenna.app");
  install();
  expectInstalledAt(destination);
  EXPECT_FALSE(mac.files.isSymbolicLink(destination));
  EXPECT_FALSE(mac.files.exists("/Applications/Tools/Brenna.app"));
}

TEST_F(ExistingCopy, IsReplacedByTheBundleWhenItIsALinkAndItsTargetStays) {
  for (const Path target : {"/nowhere", "/Users/Shared/Brenna.app", "/Users/Shared/Store.app"}) {
    for (const bool closed : {false, true}) {
      startAfresh(mac);
      mac.images.add(image, mount, [&](SimulatedFileSystem&, const Path& at) {
        mac.addApp(joined(at, "Brenna.app"), brenna("2.0"));
      });
      mac.addApp("/Users/Shared/Brenna.app", brenna("1.0", "old binary"));
      mac.addApp("/Users/Shared/Store.app", fromAppStore({.identifier = "com.kelo.store"}));
      const auto targets = mac.files.snapshot("/Users/Shared");
      mac.files.addSymlink(destination, target);
      mac.files.setWritable("/Applications", !closed);
      const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
      EXPECT_EQ(DMGInstaller::installFromDMG(image, brennaApp).installedPath, destination)
          << target << closed;
      EXPECT_FALSE(mac.files.isSymbolicLink(destination)) << target << closed;
      EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "new binary") << target << closed;
      EXPECT_EQ(mac.files.snapshot("/Users/Shared"), targets) << target << closed;
    }
  }
}

// A link's target stays, so its size isn't freed.
TEST_F(ExistingCopy, ThatIsALinkGivesNoSpaceBack) {
  theImageHoldsBrenna("2.0");
  mac.addApp("/Users/tester/Brenna.app", brenna("1.0", "old binary"));
  mac.files.addSymlink(destination, "/Users/tester/Brenna.app");
  mac.files.setCapacity("/Applications", 0);
  install();
  EXPECT_THAT(mac.logLines("Not enough space"), ElementsAre(::testing::HasSubstr("0 free + 0 reclaimable")));
  EXPECT_TRUE(mac.files.isSymbolicLink(destination));
}

TEST_F(ExistingCopy, OutsideTheApplicationsIsLeftAloneAndUnmentioned) {
  theImageHoldsBrenna("2.0");
  for (const Path path : {"/Users/tester/Brenna.app", "/ApplicationsOld/Brenna.app"}) {
    mac.addRegisteredApp(path, brenna("1.0", "old binary"));
  }
  install();
  expectInstalledAt(destination);
  EXPECT_TRUE(mac.files.exists("/ApplicationsOld/Brenna.app"));
  EXPECT_THAT(mac.logLines("different path"), IsEmpty());
}

TEST_F(ExistingCopy, OfAnotherVariantIsMentionedAndKept) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp("/Applications/Brenna Fed.app", {.identifier = kFederalIdentifier, .version = "1.0"});
  mac.runningApps.launch(kFederalIdentifier, std::nullopt, 99);
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(appsFolder(), ElementsAre("Brenna Fed.app/", "Brenna.app/"));
  EXPECT_FALSE(mac.runningApps.isRunning(99));
  EXPECT_THAT(
      mac.logLines("coexisting"),
      ElementsAre(
          "INFO DMGInstaller: Other variant of Kelo Brenna found (bundle ID: com.kelo.brenna.mac.fed) "
          "— coexisting"));
}

TEST_F(ExistingCopy, OfAnotherVariantUnderTheAppsOwnNameIsReplaced) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, {.identifier = kFederalIdentifier, .version = "3.0"});
  install();
  expectInstalledAt(destination);
}

TEST_F(ExistingCopy, FromTheAppStoreUnderTheSameIdentifierRefusesTheInstall) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, fromAppStore(brenna("1.0", "old binary")));
  install();
  expectFailure(
      "Kelo Brenna is installed from the Mac App Store. Please remove it from Launchpad first, then retry.");
  expectDetachedOnce();
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "old binary");
}

TEST_F(ExistingCopy, FromTheAppStoreUnderAnotherIdentifierKeepsItsNameAndTheNewOneGetsANumber) {
  theImageHoldsBrenna("2.0");
  mac.addApp(destination, fromAppStore({.identifier = "com.kelo.store", .executableBytes = "store binary"}));
  install();
  expectInstalledAt("/Applications/Brenna 2.app");
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "store binary");
  EXPECT_THAT(mac.logLines("coexistence"),
              ElementsAre("INFO DMGInstaller: App Store variant at /Applications/Brenna.app (bundle ID: "
                          "com.kelo.store). Installing as Brenna 2.app for coexistence."));
}

TEST_F(ExistingCopy, FromTheAppStoreBesideADanglingLinkLeavesTheLinkItsNumber) {
  theImageHoldsBrenna("2.0");
  mac.addApp(destination, fromAppStore({.identifier = "com.kelo.store"}));
  mac.files.addSymlink("/Applications/Brenna 2.app", "/nowhere");
  install();
  expectInstalledAt("/Applications/Brenna 3.app");
}

TEST_F(ExistingCopy, FromTheAppStoreWithoutAnIdentifierIsKeptLikewise) {
  theImageHoldsBrenna("2.0");
  mac.addApp(destination, fromAppStore({.infoPlist = false}));
  mac.files.addDirectory("/Applications/Brenna 2.app");
  install();
  expectInstalledAt("/Applications/Brenna 3.app");
  EXPECT_THAT(mac.logLines("(bundle ID: unknown). Installing as Brenna 3.app"), ::testing::SizeIs(1));
}

TEST_F(ExistingCopy, LosesEveryAppInTheNameThatGetsTheNumber) {
  theImageHolds({{"My.app Brenna.app", brenna("2.0")}});
  mac.addApp("/Applications/My.app Brenna.app", fromAppStore({.identifier = "com.kelo.store"}));
  install();
  expectInstalledAt("/Applications/My Brenna 2.app");
}

TEST_F(ExistingCopy, ThatCannotBeRemovedFailsTheInstall) {
  theImageHoldsBrenna("2.0");
  mac.addRegisteredApp(destination, brenna("1.0", "old binary"));
  mac.files.failNext(Operation::remove, destination,
                     cocoa(CocoaError::fileWriteUnknown, "The disk is on fire."));
  install();
  expectFailure("Failed to remove existing Kelo Brenna: The disk is on fire.");
  expectDetachedOnce();
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "old binary");
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
}

class DiskTest : public ExistingCopy {
 protected:
  static constexpr std::int64_t kNeeded = 5'300'000;

  void theNewAppTakes(std::int64_t bytes) {
    mac.images.add(image, mount, [this, bytes](SimulatedFileSystem& files, const Path& at) {
      const auto bundle = joined(at, "Brenna.app");
      mac.addApp(bundle, brenna("2.0"));
      files.setAllocatedSize(bundle + "/Contents/Info.plist", 0);
      files.setAllocatedSize(bundle + "/Contents/MacOS/app", bytes);
    });
  }
  void anOldCopyTakes(const Path& path, AppBundle bundle, std::int64_t bytes) {
    mac.addRegisteredApp(path, bundle);
    mac.files.setAllocatedSize(path + "/Contents/Info.plist", 0);
    mac.files.setAllocatedSize(path + "/Contents/MacOS/app", bytes);
  }
  void SetUp() override { theNewAppTakes(kNeeded); }
};

TEST_F(DiskTest, IsPassedWhenTheSpaceIsJustEnough) {
  mac.files.addVolume("/Applications", kNeeded);
  install();
  expectInstalledAt(destination);
}

TEST_F(DiskTest, IsFailedWhenOneByteIsMissing) {
  mac.files.addVolume("/Applications", kNeeded - 1);
  install();
  expectFailure("Not enough disk space to install Kelo Brenna: 5 MB required, 5 MB available.");
  expectDetachedOnce();
  EXPECT_EQ(story().back(),
            "ERROR DMGInstaller: Not enough space for Kelo Brenna: needs 5300000 bytes, 5299999 free "
            "+ 0 reclaimable — short by 1");
}

TEST_F(DiskTest, CountsWhatTheOldCopyGivesBack) {
  mac.files.addVolume("/Applications", 1'000'000);
  anOldCopyTakes(destination, brenna("1.0"), kNeeded - 1'000'000);
  install();
  expectInstalledAt(destination);
}

TEST_F(DiskTest, TellsHowMuchTheOldCopyWouldGiveBack) {
  mac.files.addVolume("/Applications", 1'000'000);
  anOldCopyTakes(destination, brenna("1.0"), 2'999'999);
  install();
  expectFailure("Not enough disk space to install Kelo Brenna: 5 MB required, 3 MB available.");
  EXPECT_EQ(story().back(),
            "ERROR DMGInstaller: Not enough space for Kelo Brenna: needs 5300000 bytes, 1000000 free "
            "+ 2999999 reclaimable — short by 1300001");
  EXPECT_TRUE(mac.files.exists(destination));
}

TEST_F(DiskTest, DoesNotCountAnAppStoreCopyWhichStays) {
  mac.files.addVolume("/Applications", 1'000'000);
  anOldCopyTakes(destination, fromAppStore(brenna("1.0")), 10'000'000);
  install();
  expectFailure("Not enough disk space to install Kelo Brenna: 5 MB required, 1 MB available.");
}

TEST_F(DiskTest, ComesAfterTheRemovalOfACopyUnderAnotherName) {
  mac.files.addVolume("/Applications", 1'000'000);
  anOldCopyTakes("/Applications/Old.app", brenna("1.0"), 1'500'000);
  install();
  expectFailure("Not enough disk space to install Kelo Brenna: 5 MB required, 2 MB available.");
  EXPECT_THAT(appsFolder(), IsEmpty());
}

TEST_F(DiskTest, IsSkippedWhenTheFreeSpaceIsUnknown) {
  mac.files.addVolume("/Applications", std::nullopt);
  install();
  expectInstalledAt(destination);
}

TEST_F(DiskTest, TakesTheOlderAnswerOfAVolumeThatHasNoNewerOne) {
  mac.files.addVolume("/Applications");
  mac.files.setCapacityUnknown("/Applications", kNeeded - 1);
  EXPECT_EQ(DMGInstaller::volumeFreeBytes("/Applications"), kNeeded - 1);
  install();
  expectFailure("Not enough disk space to install Kelo Brenna: 5 MB required, 5 MB available.");
}

TEST_F(DiskTest, HasNoAnswerForAPathThatIsNotThere) {
  EXPECT_EQ(DMGInstaller::volumeFreeBytes("/nowhere"), std::nullopt);
}

}  // namespace
}  // namespace installer::test
