// The staging name beside the bundle, and the check for obstacles to its deletion.
#include "Installer/AppUninstallerStory.h"

namespace installer::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Staging : public AppUninstallerStory {};

TEST_F(Staging, StagesACopyInASubfolderBesideIt) {
  mac.addRegisteredApp("/Applications/Tools/My Brenna.app", brenna());
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_THAT(mac.files.changes(), Contains("move /Applications/Tools/My Brenna.app -> "
                                            "/Applications/Tools/.My Brenna.app.kelo-uninstall"));
}

TEST_F(Staging, ClearsWhatACrashedRunLeft) {
  brennaIsInstalled();
  mac.addApp(staged, brenna());
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_EQ(story().front(), "INFO AppUninstaller: clearing a leftover staging path at " + staged);
}

TEST_F(Staging, ClearsALinkUnderTheStagingNameAndNothingBehindIt) {
  brennaIsInstalled();
  mac.files.addFile("/Users/tester/Documents/letter", "precious");
  mac.files.addSymlink(staged, "/Users/tester/Documents");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_EQ(story().front(), "INFO AppUninstaller: clearing a leftover staging path at " + staged);
  EXPECT_EQ(mac.files.read("/Users/tester/Documents/letter"), "precious");
}

TEST_F(Staging, ClearsADanglingLinkUnderTheStagingName) {
  brennaIsInstalled();
  mac.files.addSymlink(staged, "/nowhere");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_EQ(story().front(), "INFO AppUninstaller: clearing a leftover staging path at " + staged);
  EXPECT_FALSE(mac.files.exists("/nowhere"));
}

TEST_F(Staging, TakesTheNextNameWhenADanglingLinkCannotBeCleared) {
  brennaIsInstalled();
  mac.files.addSymlink(staged, "/nowhere");
  mac.files.failAlways(Operation::remove, staged, cocoa(513));
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_THAT(mac.files.changes(), Contains("move /Applications/Brenna.app -> " + staged + ".1"));
}

TEST_F(Staging, ClearsWhatAKilledInstallLeftHidden) {
  for (const bool installed : {true, false}) {
    if (installed) brennaIsInstalled();
    mac.files.addLeftover(path);
    uninstall(Password::isNeverAskedFor);
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.alreadyAbsent, !installed);
    EXPECT_THAT(appsFolder(), IsEmpty()) << installed;
    EXPECT_THAT(story(),
                Contains("INFO AppUninstaller: removed leftovers of an interrupted run beside " + path));
  }
}

TEST_F(Staging, ClearsWhatAKilledInstallLeftBesideACopyInASubfolderToo) {
  const Path tools = "/Applications/Tools/Brenna.app";
  mac.addRegisteredApp(tools, brenna());
  mac.files.addLeftover(tools);
  mac.files.addLeftover(path);
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.success);
  EXPECT_THAT(mac.files.tree("/Applications"), ElementsAre("Tools/"));
}

TEST_F(Staging, DeletesNothingOfABundleWithAnImmutableFileAndPutsItBack) {
  for (const auto password : {Password::isNeverAskedFor, Password::mayBeAskedFor}) {
    brennaIsInstalled();
    mac.files.setImmutable(path + "/Contents/Resources/en.lproj/text.strings");
    if (password == Password::mayBeAskedFor) mac.administrator.dismissesNext();
    uninstall(password);
    EXPECT_FALSE(result.success);
    expectUntouched();
  }
  EXPECT_EQ(result.errorMessage, leftInstalled);
}

TEST_F(Staging, DeletesNothingOfABundleWithAnothersFileInAStickyFolder) {
  brennaIsInstalled();
  const auto shared = path + "/Contents/Resources";
  mac.files.setSticky(shared);
  for (const std::string theirs : {"", "/en.lproj"}) mac.files.setOwnedByAnother(shared + theirs);
  uninstall(Password::isNeverAskedFor);
  expectFailure(appManagement, Flag::permissionDenied);
  expectUntouched();
}

// A link can be removed independent of its target's permissions.
TEST_F(Staging, RemovesALinkInTheAppsPlaceWithoutAPromptForItsTarget) {
  mac.addApp("/Users/tester/Brenna.app", brenna());
  mac.files.setWritable("/Users/tester/Brenna.app", false);
  mac.files.setWritable("/Users/tester/Brenna.app/Contents", false);
  mac.files.addSymlink(path, "/Users/tester/Brenna.app");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_TRUE(mac.files.exists("/Users/tester/Brenna.app/Contents/MacOS/app"));
}

TEST_F(Staging, TakesTheNextNameWhenALeftoverCannotBeCleared) {
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

TEST_F(Staging, GivesUpAfterTwentyTakenNamesWithTheAppUntouched) {
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

TEST_F(Staging, TakesTheTwentiethName) {
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

TEST_F(Staging, DeletesNothingWhenADirectoryInsideWouldStopIt) {
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

TEST_F(Staging, LooksAtTheBundleItselfFirst) {
  brennaIsInstalled();
  mac.files.setWritable(path, false);
  mac.files.setWritable(path + "/Contents", false);
  uninstall(Password::isNeverAskedFor);
  EXPECT_THAT(mac.logLines("is not writable"),
              ElementsAre(::testing::StartsWith("WARN AppUninstaller: " + staged + " is not writable")));
  expectUntouched();
}

TEST_F(Staging, LooksIntoHiddenDirectoriesToo) {
  brennaIsInstalled();
  mac.files.addFile(path + "/Contents/.git/config", "");
  mac.files.setWritable(path + "/Contents/.git", false);
  uninstall(Password::isNeverAskedFor);
  EXPECT_TRUE(result.permissionDenied);
}

TEST_F(Staging, IsNotStoppedByALinkToAReadOnlyDirectory) {
  brennaIsInstalled();
  mac.files.addDirectory("/Library/Frozen/Inner");
  mac.files.setWritable("/Library/Frozen", false);
  mac.files.setWritable("/Library/Frozen/Inner", false);
  mac.files.addSymlink(path + "/Contents/Frozen", "/Library/Frozen");
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_TRUE(mac.files.exists("/Library/Frozen/Inner"));
}

TEST_F(Staging, MentionsADirectoryThatItCannotLookInto) {
  brennaIsInstalled();
  mac.files.failNext(Operation::enumerate, staged + "/Contents/Resources", cocoa(257, "You may not look."));
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
  EXPECT_EQ(story().front(),
            "WARN AppUninstaller: cannot enumerate " + staged + "/Contents/Resources: You may not look.");
}

TEST_F(Staging, GoesOnWhenTheBundleCannotBeWalked) {
  brennaIsInstalled();
  mac.files.failNext(Operation::enumerate, staged, cocoa(257));
  uninstall(Password::isNeverAskedFor);
  expectRemoved();
}

}  // namespace
}  // namespace installer::test
