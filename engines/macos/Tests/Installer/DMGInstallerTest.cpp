// A whole install, the image's own failures and the choice of the bundle.
#include <nlohmann/json.hpp>

#include "Installer/AppTurn.h"
#include "Installer/DMGInstallerStory.h"
#include "Support/PropertyListText.h"

namespace installer::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class InstallFromDMG : public DMGInstallerStory {};

TEST_F(InstallFromDMG, OnAFreshMachineIsAPlainCopy) {
  theImageHoldsBrenna();
  install();
  expectInstalledAt(destination);
  EXPECT_EQ(story(), (Lines{"INFO Mounting DMG for Kelo Brenna at " + image,
                            "INFO Kelo Brenna installed at /Applications/Brenna.app",
                            "INFO Telemetry disabled (no user consent flow yet) — skipping report"}));
  EXPECT_EQ(
      mac.programs.commandLines(),
      (Lines{"hdiutil attach " + image + " -nobrowse -noverify -readonly -plist",
             "codesign --verify --strict -vv -R =anchor apple generic and certificate leaf[subject.OU] = "
             "QX7M4R2V9D " +
                 source,
             "codesign --verify --strict -vv -R =anchor apple generic and certificate leaf[subject.OU] = "
             "QX7M4R2V9D " +
                 destination,
             "xattr -dr com.apple.quarantine " + destination, "hdiutil detach " + mount + " -force -quiet"}));
  EXPECT_EQ(mac.workspace.registeredBundles(), std::vector<Path>{destination});
  EXPECT_THAT(mac.files.tree(destination),
              ElementsAre("Contents/", "Contents/Info.plist", "Contents/MacOS/", "Contents/MacOS/app"));
  EXPECT_THAT(mac.administrator.commandLines(), IsEmpty());
}

TEST_F(InstallFromDMG, KeepsEachProgramsOutputOnStreamsOfItsOwn) {
  theImageHoldsBrenna();
  install();
  for (const auto& start : mac.programs.starts()) {
    const bool isTool = start.program == mac.paths.codesign;
    EXPECT_EQ(start.captured, isTool ? CapturedOutput::merged : CapturedOutput::separate) << start.program;
  }
}

TEST_F(InstallFromDMG, CanRunOnTheMainThreadToo) {
  theImageHoldsBrenna();
  mac.files.setWritable("/Applications", false);
  result = DMGInstaller::installFromDMG(image, app());
  expectInstalledAt(destination);
}

TEST_F(InstallFromDMG, FailsWhenTheImageCannotBeAttached) {
  mac.programs.on(mac.paths.hdiutil).cannotLaunch("The file “hdiutil” doesn’t exist.");
  install();
  expectFailure("Failed to mount DMG: The file “hdiutil” doesn’t exist.");
  EXPECT_THAT(mac.programs.starts(mac.paths.hdiutil), ::testing::SizeIs(1));
}

TEST_F(InstallFromDMG, FailsWithTheStatusOfAFailedAttachAndDoesNotRetry) {
  mac.programs.on(mac.paths.hdiutil).exits(17, "", "no mountable file systems");
  install();
  expectFailure("hdiutil attach failed with exit code 17");
  EXPECT_THAT(mac.programs.starts(mac.paths.hdiutil), ::testing::SizeIs(1));
}

TEST_F(InstallFromDMG, DetachesNothingWhileTheMountPointIsUnknown) {
  const auto entities = [](const Json& list) { return propertyListText(Json{{"system-entities", list}}); };
  struct Row {
    std::string output;
    std::string message;
  };
  for (const auto& row : std::vector<Row>{
           {"", "Failed to parse hdiutil output"},
           {"not a property list", "Failed to parse hdiutil output"},
           {propertyListText(Json::array()), "No mount point found"},
           {propertyListText(Json::object()), "No mount point found"},
           {propertyListText(Json{{"system-entities", "/Volumes/X"}}), "No mount point found"},
           {entities(Json::array()), "No mount point found"},
           {entities(Json::array({Json{{"dev-entry", "/dev/disk4"}}})), "No mount point found"},
           {entities(Json::array({Json{{"mount-point", 4}}})), "No mount point found"},
           {entities(Json::array({Json{{"mount-point", "/Volumes/X"}}, "no dictionary"})),
            "No mount point found"},
       }) {
    startAfresh(mac);
    mac.programs.on(mac.paths.hdiutil).exits(0, row.output);
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    const auto failed = DMGInstaller::installFromDMG(image, brennaApp);
    EXPECT_EQ(failed.errorMessage, row.message) << row.output;
    EXPECT_EQ(failed.errorCode, std::nullopt);
    EXPECT_EQ(mac.programs.commandLines().size(), 1U) << row.output;
  }
}

TEST_F(InstallFromDMG, TakesTheFirstMountPointThatIsText) {
  mac.addApp("/Volumes/Second/Brenna.app", brenna("2.0"));
  mac.addApp("/Volumes/Third/Brenna.app", brenna("3.0"));
  const auto list = Json::array({Json{{"mount-point", 1}}, Json{{"mount-point", "/Volumes/Second"}},
                                 Json{{"mount-point", "/Volumes/Third"}}});
  mac.programs.on(mac.paths.hdiutil).exits(0, propertyListText(Json{{"system-entities", list}}));
  install();
  EXPECT_TRUE(result.success);
  EXPECT_EQ(mac.programs.commandLines(mac.paths.hdiutil).back(),
            "hdiutil detach /Volumes/Second -force -quiet");
}

class TurnAfterAKill : public DMGInstallerStory {
 protected:
  const Path package =
      "/Users/tester/Kelo-Desk-Installer.app/Contents/Resources/packages/" + app().tempFileName;

  void attach(const Path& file, const Path& mountPoint, const char* option = "-nobrowse") {
    mac.images.add(file, mountPoint, [](auto&, const auto&) {});
    ASSERT_TRUE(machine().processes.run(mac.paths.hdiutil, {"attach", file, option}, CapturedOutput::none));
  }
  void takeAnotherAppsTurn() {
    EXPECT_TRUE(AppTurns::tryTake(*KeloAppProvider::shared().app(AppIdentifier::rulo)));
  }
};

TEST_F(TurnAfterAKill, DetachesADownloadAndAnInstallersPackage) {
  attach(image, "/Volumes/A");
  attach("/private" + package, "/Volumes/B");
  mac.files.erase(image);
  takeAnotherAppsTurn();
  EXPECT_THAT(mac.images.attached(), IsEmpty());
  EXPECT_THAT(mac.logLines("Detaching"),
              ElementsAre("INFO DMGInstaller: Detaching /Volumes/A, left by an interrupted run",
                          "INFO DMGInstaller: Detaching /Volumes/B, left by an interrupted run"));
}

TEST_F(TurnAfterAKill, DetachesNoImageThatTheUserOpenedAndNoOtherImage) {
  attach(package, "/Volumes/A", "-readonly");
  attach("/Users/tester/" + app().tempFileName, "/Volumes/B");
  takeAnotherAppsTurn();
  EXPECT_THAT(mac.images.attached(), ElementsAre("/Volumes/A", "/Volumes/B"));
}

TEST_F(TurnAfterAKill, StartsNoProgramWithoutAHiddenVolume) {
  takeAnotherAppsTurn();
  attach(package, "/Volumes/A", "-readonly");
  takeAnotherAppsTurn();
  EXPECT_THAT(mac.programs.commandLines(), ElementsAre("hdiutil attach " + package + " -readonly"));
}

TEST_F(TurnAfterAKill, IgnoresAListOfAnotherShape) {
  attach(package, "/Volumes/A");
  const Json entities = Json::array({Json{{"mount-point", "/Volumes/A"}}});
  for (const Json& images : {Json(7), Json::array({7, Json::object()}), Json::object(),
                             Json::array({Json{{"system-entities", entities}}}),
                             Json::array({Json{{"image-path", 7}, {"system-entities", entities}}})}) {
    const auto list = propertyListText(Json{{"images", images}});
    mac.programs.on(mac.paths.hdiutil).does([&](const Arguments& arguments) {
      return ProgramExit{arguments[0] == "info" ? 0 : 1, list, ""};
    });
    takeAnotherAppsTurn();
    EXPECT_EQ(mac.programs.commandLines(mac.paths.hdiutil).back(), "hdiutil info -plist") << images;
  }
}

TEST_F(InstallFromDMG, DetachesAnImageThatCannotBeListed) {
  theImageHoldsBrenna();
  mac.files.failNext(Operation::list, mount, cocoa(257, "You may not look."));
  install();
  expectFailure("Failed to install Kelo Brenna: You may not look.");
  expectDetachedOnce();
}

TEST_F(InstallFromDMG, NeedsAnAppInTheImage) {
  theImageHolds({{"Brenna.pkg", {}}, {"Applications", {}}, {"Brenna.APP", brenna("2.0")}});
  install();
  expectFailure("No .app bundle found in DMG");
  EXPECT_EQ(
      mac.logLines("the image contains"),
      (Lines{R"(INFO DMGInstaller: the image contains: ["Brenna.pkg", "Applications", "Brenna.APP"])"}));
  expectDetachedOnce();
  EXPECT_THAT(appsFolder(), IsEmpty());
}

TEST_F(InstallFromDMG, TakesTheAppWithTheExpectedIdentifierOutOfTwo) {
  theImageHolds(
      {{"Helper.app", {.identifier = "com.kelo.helper", .version = "9.0"}}, {"Brenna.app", brenna("2.0")}});
  install();
  expectInstalledAt(destination);
  EXPECT_THAT(appsFolder(), ElementsAre("Brenna.app/"));
}

TEST_F(InstallFromDMG, JudgesAnOnlyAppOfAnotherIdentifierByItsSignatureAlone) {
  AppBundle bundle{.identifier = "com.kelo.other", .version = "2.0", .executableBytes = "new binary"};
  theImageHolds({{"Other.app", bundle}});
  install();
  expectInstalledAt("/Applications/Other.app");
}

TEST_F(InstallFromDMG, RefusesTwoAppsWithoutTheExpectedIdentifier) {
  theImageHolds({{"Brenna.app", {.identifier = kFederalIdentifier}}, {"Bren \"na\".app", {}}});
  install();
  expectFailure("The package for Kelo Brenna does not contain the expected application.",
                ErrorCode::verifyFailed);
  expectDetachedOnce();
  EXPECT_EQ(story().back(),
            "INFO DMGInstaller: DMG for Kelo Brenna carries 2 app bundles, none with the expected "
            "identifier com.kelo.brenna.mac: [\"Brenna.app\", \"Bren \\\"na\\\".app\"]");
  EXPECT_THAT(appsFolder(), IsEmpty());
}

TEST_F(InstallFromDMG, RefusesABundleInTheImageThatAnotherTeamSigned) {
  theImageHoldsBrenna();
  mac.addRegisteredApp(destination, brenna("1.0", "old binary"));
  mac.verdicts.refuse(SimulatedVerdicts::Check::requirement, source);
  install();
  expectFailure("Kelo Brenna could not be verified as genuine and was not installed.",
                ErrorCode::signatureFailed);
  expectDetachedOnce();
  EXPECT_EQ(mac.files.read(destination + "/Contents/MacOS/app"), "old binary");
  EXPECT_EQ(story().back(),
            "ERROR DMGInstaller: Brenna.app in the DMG for Kelo Brenna does not satisfy the signing "
            "requirement — refusing to install it");
}

TEST_F(InstallFromDMG, RefusesALinkInTheImageHoweverGenuineWhatItLeadsTo) {
  mac.addApp("/Users/Shared/Brenna.app", brenna("2.0"));
  mac.images.add(image, mount, [](SimulatedFileSystem& files, const Path& at) {
    files.addSymlink(at + "/Brenna.app", "/Users/Shared/Brenna.app");
  });
  install();
  expectFailure("Kelo Brenna could not be verified as genuine and was not installed.",
                ErrorCode::signatureFailed);
  expectDetachedOnce();
  EXPECT_THAT(appsFolder(), IsEmpty());
  EXPECT_TRUE(mac.files.exists("/Users/Shared/Brenna.app/Contents/MacOS/app"));
  EXPECT_EQ(story().back(),
            "ERROR DMGInstaller: Brenna.app in the DMG for Kelo Brenna does not satisfy the signing "
            "requirement — refusing to install it");
}

TEST_F(InstallFromDMG, QuitsARunningCopyBeforeAnythingElseEvenWhenTheInstallFails) {
  mac.runningApps.launch(kBrennaIdentifier, "Kelo Brenna", 4711);
  mac.runningApps.launch(kFederalIdentifier, "Kelo Brenna Fed", 4712);
  install();  // there is no such image
  expectFailure("hdiutil attach failed with exit code 1");
  EXPECT_THAT(story(),
              ElementsAre("INFO DMGInstaller: Kelo Brenna is running (pid 4711) — sending graceful quit",
                          "INFO DMGInstaller: Kelo Brenna Fed is running (pid 4712) — sending graceful quit",
                          StartsWith("INFO Mounting DMG"),
                          "INFO DMGInstaller: hdiutil attach: hdiutil: attach failed - No such file or "
                          "directory"));
}

TEST_F(InstallFromDMG, SwallowsAFailedDetach) {
  theImageHoldsBrenna();
  mac.programs.on(mac.paths.hdiutil).doesNext([this](const Arguments&) {
    mac.addApp(source, brenna("2.0"));
    return ProgramExit{
        0, propertyListText(Json{{"system-entities", Json::array({Json{{"mount-point", mount}}})}}), ""};
  });
  mac.programs.on(mac.paths.hdiutil).cannotLaunchNext("gone");
  install();
  EXPECT_TRUE(result.success);
  EXPECT_THAT(mac.logLines("gone"), IsEmpty());
}

}  // namespace
}  // namespace installer::test
