// The restoration of a bundle whose deletion failed.
#include <nlohmann/json.hpp>

#include "Installer/AppUninstallerStory.h"
#include "Support/PropertyListText.h"

namespace installer::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Restore : public AppUninstallerStory {};

TEST_F(Restore, RestoresAWholeBundleWhoseDeletionFails) {
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

TEST_F(Restore, StrandsABundleThatLostItsInformation) {
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

TEST_F(Restore, PutsBackOnlyABundleThatCouldStart) {
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
    startAfresh(mac);
    mac.addRegisteredApp(path, brenna());
    mac.files.addFile(path + "/Contents/Resources/text", "text");
    row.spoil(mac, path);
    const auto whole = mac.files.snapshot(path);
    mac.files.failNext(Operation::remove, staged, cocoa(513));
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    const auto ended = AppUninstaller::uninstall(brennaApp, false);
    EXPECT_EQ(mac.files.exists(path), row.goesBack) << row.name;
    EXPECT_EQ(mac.files.snapshot(row.goesBack ? path : staged), whole) << row.name;
    EXPECT_EQ(ended.errorMessage, row.goesBack ? appManagement : stranded) << row.name;
  }
}

TEST_F(Restore, ClearsAStrandedBundleWhenTheAppIsRemovedAgain) {
  brennaIsInstalled();
  mac.files.failNext(Operation::remove, staged + "/Contents/Resources", cocoa(513));
  uninstall(Password::isNeverAskedFor);
  brennaIsInstalled();
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

TEST_F(Restore, StrandsABundleThatCannotBeMovedBackAndLeavesItsRegistration) {
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

}  // namespace
}  // namespace installer::test
