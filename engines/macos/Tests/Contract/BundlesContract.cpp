// The contract of readers of bundles and of registrations.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Contract/MachineUnderTest.h"
#include "Support/PropertyListText.h"

namespace installer::test {
namespace {

class BundlesContract : public Contract {
 protected:
  Bundles& bundles = machine.bundles;
  Workspace& workspace = machine.workspace;

  // A unique identifier: on some machines registrations outlive a case and a run.
  std::string ownIdentifier(const std::string& name) {
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    return fmt::format("test.{}.{}.{}", machine.systemInfo.processIdentifier(), test->line(), name);
  }
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

TEST_P(BundlesContract, TakesADateForNoString) {
  lay("A.app/Contents/Info.plist",
      "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><date>2026-03-01T00:00:00Z</date>"
      "<key>CFBundleShortVersionString</key><date>2026-03-01T00:00:00Z</date></dict></plist>");
  const auto bundle = bundles.read(at("A.app"));
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->bundleIdentifier(), std::nullopt);
  EXPECT_EQ(bundle->infoString("CFBundleShortVersionString"), std::nullopt);
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

TEST_P(BundlesContract, TakesNoInformationFromWhatIsNoFileOfReasonableLength) {
  auto information = propertyListText({{"CFBundleIdentifier", "test.a"}});
  layFolder("Folder.app/Contents/Info.plist");
  lay("Long.app/Contents/Info.plist", information.append(9'000'000, ' '));
  for (const auto* const name : {"Folder.app", "Long.app"}) {
    const auto bundle = bundles.read(at(name));
    ASSERT_NE(bundle, nullptr) << name;
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
  const auto known = ownIdentifier("known");
  EXPECT_EQ(workspace.applicationPath(known), std::nullopt);
  workspace.registerBundle(layBundle("A.app", known, "A"));
  turnUntil([&] { return workspace.applicationPath(known) == at("A.app"); });
  EXPECT_EQ(workspace.applicationPath(ownIdentifier("unknown")), std::nullopt);
}

// A platform may keep or drop a stale registration.
TEST_P(BundlesContract, FindsNothingElseWhenARegistrationHasGoneStale) {
  const auto identifier = ownIdentifier("stale");
  workspace.registerBundle(layBundle("A.app", identifier, "A"));
  workspace.registerBundle(layBundle("B.app", ownIdentifier("other"), "B"));
  ASSERT_TRUE(files.removeItem(at("A.app")));
  EXPECT_EQ(workspace.applicationPath(identifier).value_or(at("A.app")), at("A.app"));
}

TEST_P(BundlesContract, ReplacesWhatWasKnownOfAPath) {
  workspace.registerBundle(layBundle("A.app", ownIdentifier("old"), "A"));
  workspace.registerBundle(layBundle("A.app", ownIdentifier("new"), "A"));
  turnUntil([this] { return workspace.applicationPath(ownIdentifier("new")) == at("A.app"); });
  turnUntil([this] { return !workspace.applicationPath(ownIdentifier("old")); });
}

TEST_P(BundlesContract, RegistersNothingThatHasNoIdentifier) {
  workspace.registerBundle(layFolder("Empty.app"));
  workspace.registerBundle(at("nothing"));
  EXPECT_EQ(workspace.applicationPath(""), std::nullopt);
}

INSTANTIATE_CONTRACT(BundlesContract);

}  // namespace
}  // namespace installer::test
