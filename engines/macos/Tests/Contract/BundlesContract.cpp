// What every reader of bundles and of registrations promises.
#include <nlohmann/json.hpp>

#include "Contract/MachineUnderTest.h"
#include "Support/PropertyListText.h"

namespace installer::testing {
namespace {

class BundlesContract : public Contract {
 protected:
  Bundles& bundles = machine.bundles;
  Workspace& workspace = machine.workspace;
};

TEST_P(BundlesContract, ReadsWhatABundleSays) {
  lay("A.app/Contents/Info.plist",
      propertyListText(
          {{"CFBundleIdentifier", "test.a"}, {"CFBundleShortVersionString", "1.2.3"}, {"LSMinimum", 12}}));
  const auto bundle = bundles.read(at("A.app"));
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->path, at("A.app"));
  EXPECT_EQ(bundle->bundleIdentifier(), "test.a");
  EXPECT_EQ(bundle->infoString("CFBundleShortVersionString"), "1.2.3");
  EXPECT_EQ(bundle->infoString("LSMinimum"), std::nullopt);
  EXPECT_EQ(bundle->infoString("missing"), std::nullopt);
}

TEST_P(BundlesContract, TakesADirectoryWithoutInformationForABundleThatSaysNothing) {
  layFolder("Empty.app");
  lay("Broken.app/Contents/Info.plist", "not a property list");
  lay("Array.app/Contents/Info.plist", propertyListText(Json::array({"a"})));
  for (const auto* const name : {"Empty.app", "Broken.app", "Array.app"}) {
    const auto bundle = bundles.read(at(name));
    ASSERT_NE(bundle, nullptr) << name;
    EXPECT_EQ(bundle->bundleIdentifier(), std::nullopt) << name;
    EXPECT_EQ(bundle->infoDictionary, nullptr) << name;
  }
}

TEST_P(BundlesContract, HasNoBundleWhereNoDirectoryIs) {
  EXPECT_EQ(bundles.read(at("nothing")), nullptr);
  EXPECT_EQ(bundles.read(lay("file")), nullptr);
}

TEST_P(BundlesContract, ReadsAfreshAndLeavesEarlierAnswersAlone) {
  const auto path = layBundle("A.app", "test.old", "A");
  const auto before = bundles.read(path);
  layBundle("A.app", "test.new", "A");
  EXPECT_EQ(before->bundleIdentifier(), "test.old");
  EXPECT_EQ(bundles.read(path)->bundleIdentifier(), "test.new");
}

TEST_P(BundlesContract, FindsWhatWasRegistered) {
  EXPECT_EQ(workspace.applicationPath("test.a"), std::nullopt);
  workspace.registerBundle(layBundle("A.app", "test.a", "A"));
  EXPECT_EQ(workspace.applicationPath("test.a"), at("A.app"));
  EXPECT_EQ(workspace.applicationPath("test.b"), std::nullopt);
}

TEST_P(BundlesContract, KeepsARegistrationThatHasGoneStale) {
  workspace.registerBundle(layBundle("A.app", "test.a", "A"));
  ASSERT_TRUE(files.removeItem(at("A.app")));
  EXPECT_EQ(workspace.applicationPath("test.a"), at("A.app"));
}

TEST_P(BundlesContract, ReplacesWhatWasKnownOfAPath) {
  workspace.registerBundle(layBundle("A.app", "test.old", "A"));
  workspace.registerBundle(layBundle("A.app", "test.new", "A"));
  EXPECT_EQ(workspace.applicationPath("test.old"), std::nullopt);
  EXPECT_EQ(workspace.applicationPath("test.new"), at("A.app"));
}

TEST_P(BundlesContract, RegistersNothingThatHasNoIdentifier) {
  workspace.registerBundle(layFolder("Empty.app"));
  workspace.registerBundle(at("nothing"));
  EXPECT_EQ(workspace.applicationPath(""), std::nullopt);
}

INSTANTIATE_CONTRACT(BundlesContract);

}  // namespace
}  // namespace installer::testing
