#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Detection : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;
  const AppInfo tolvi = *KeloAppProvider::shared().app(AppIdentifier::tolvi);
  const std::string primary = tolvi.installerBundleIdentifier;
  const std::string variant = tolvi.otherBundleIdentifiers.front();
  const Path expected = "/Applications/Kelo Tolvi.app";

  Lines lines() { return mac.logLines("ExistingAppDetector"); }
};

TEST_F(Detection, FindsARegisteredPrimary) {
  mac.addRegisteredApp("/Applications/Utilities/T.app", {.identifier = primary, .version = "4.2"});
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_EQ(status.app, tolvi);
  EXPECT_EQ(status.primaryInstallation, ExistingInstallationType::regular("/Applications/Utilities/T.app"));
  EXPECT_EQ(status.primaryVersion, "4.2");
  EXPECT_EQ(status.primaryPath, "/Applications/Utilities/T.app");
  EXPECT_THAT(status.otherVariants, IsEmpty());
  EXPECT_EQ(lines(), Lines{"INFO ExistingAppDetector: Found Kelo Tolvi primary (com.kelo.ktolvimac) at "
                           "/Applications/Utilities/T.app, version: 4.2, App Store: false"});
}

TEST_F(Detection, FindsAnUnregisteredPrimaryAtItsExpectedPath) {
  mac.addApp(expected, {.identifier = primary, .version = "4.2"});
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_EQ(status.primaryInstallation, ExistingInstallationType::regular(expected));
  EXPECT_EQ(lines(), Lines{"INFO ExistingAppDetector: Found Kelo Tolvi primary at expected path "
                           "/Applications/Kelo Tolvi.app, version: 4.2, App Store: false"});
}

TEST_F(Detection, PrefersTheRegisteredCopyToTheExpectedPath) {
  mac.addApp(expected, {.identifier = primary, .version = "1.0"});
  mac.addRegisteredApp("/Applications/Other.app", {.identifier = primary, .version = "2.0"});
  EXPECT_EQ(ExistingAppDetector::detect(tolvi).primaryPath, "/Applications/Other.app");
}

TEST_F(Detection, IgnoresACopyOutsideTheApplicationsFolderAndGoesOnLooking) {
  mac.addRegisteredApp("/Users/x/Downloads/Kelo Tolvi.app", {.identifier = primary, .version = "9"});
  mac.addApp(expected, {.identifier = primary, .version = "4.2"});
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_EQ(status.primaryInstallation, ExistingInstallationType::regular(expected));
  EXPECT_EQ(lines(),
            (Lines{"INFO ExistingAppDetector: Ignoring com.kelo.ktolvimac — app found outside /Applications/",
                   "INFO ExistingAppDetector: Found Kelo Tolvi primary at expected path "
                   "/Applications/Kelo Tolvi.app, version: 4.2, App Store: false"}));
}

TEST_F(Detection, IgnoresFoldersThatOnlyBeginLikeTheApplicationsFolder) {
  mac.addRegisteredApp("/Applications2/T.app", {.identifier = primary});
  EXPECT_FALSE(ExistingAppDetector::detect(tolvi).primaryInstallation.isInstalled());
}

TEST_F(Detection, TakesAStaleRegistrationForNotInstalled) {
  mac.workspace.addRegistration(primary, "/Applications/Gone.app");
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_EQ(status.primaryInstallation, ExistingInstallationType::none());
  EXPECT_EQ(status.primaryPath, std::nullopt);
  EXPECT_EQ(lines(),
            (Lines{"WARN ExistingAppDetector: com.kelo.ktolvimac resolved to /Applications/Gone.app "
                   "but the bundle no longer exists — treating as not installed",
                   "INFO ExistingAppDetector: Kelo Tolvi primary (com.kelo.ktolvimac) not installed"}));
}

TEST_F(Detection, FindsNothingOnAnEmptyMachine) {
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_EQ(status.primaryInstallation.kind, ExistingInstallationType::Kind::none);
  EXPECT_EQ(status.primaryVersion, std::nullopt);
  EXPECT_THAT(status.otherVariants, IsEmpty());
  EXPECT_EQ(lines(),
            Lines{"INFO ExistingAppDetector: Kelo Tolvi primary (com.kelo.ktolvimac) not installed"});
}

TEST_F(Detection, TakesAVariantUnderThePrimarysNameForAVariant) {
  mac.addRegisteredApp(expected, {.identifier = variant, .version = "3.0"});
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_FALSE(status.primaryInstallation.isInstalled());
  EXPECT_THAT(status.otherVariants, ElementsAre(DetectedVariant{variant, expected, "3.0", false}));
  EXPECT_EQ(lines().back(),
            "INFO ExistingAppDetector: Found other variant of Kelo Tolvi at "
            "/Applications/Kelo Tolvi.app, version: 3.0, App Store: false");
}

TEST_F(Detection, FindsVariantsByRegistrationAlone) {
  mac.addApp(expected, {.identifier = variant});
  EXPECT_THAT(ExistingAppDetector::detect(tolvi).otherVariants, IsEmpty());
}

TEST_F(Detection, DoesNotTakeABundleWithoutAnIdentifierAtTheExpectedPath) {
  mac.addApp(expected, {.version = "4.2"});
  EXPECT_FALSE(ExistingAppDetector::detect(tolvi).primaryInstallation.isInstalled());
}

TEST_F(Detection, ListsVariantsInTheOrderOfTheRow) {
  auto app = tolvi;
  app.otherBundleIdentifiers = {"b", "missing", "a"};
  mac.addRegisteredApp("/Applications/A.app", {.identifier = "a"});
  mac.addRegisteredApp("/Applications/B.app", {.identifier = "b", .appStoreReceipt = true});
  EXPECT_THAT(ExistingAppDetector::detect(app).otherVariants,
              ElementsAre(DetectedVariant{"b", "/Applications/B.app", std::nullopt, true},
                          DetectedVariant{"a", "/Applications/A.app", std::nullopt, false}));
}

TEST_F(Detection, CountsAnEmptyReceiptAsAppStore) {
  mac.addRegisteredApp(expected, {.identifier = primary, .version = "1", .appStoreReceipt = true});
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_EQ(status.primaryInstallation, ExistingInstallationType::appStore(expected));
  EXPECT_EQ(lines(), Lines{"INFO ExistingAppDetector: Found Kelo Tolvi primary (com.kelo.ktolvimac) at "
                           "/Applications/Kelo Tolvi.app, version: 1, App Store: true"});
}

TEST_F(Detection, CountsABundleWithoutAVersionAsInstalled) {
  mac.addRegisteredApp(expected, {.identifier = primary});
  const auto status = ExistingAppDetector::detect(tolvi);
  EXPECT_TRUE(status.primaryInstallation.isInstalled());
  EXPECT_EQ(status.primaryVersion, std::nullopt);
  EXPECT_THAT(lines(), Contains(::testing::HasSubstr("version: unknown")));
}

TEST_F(Detection, FindsNoVariantsOfAnAppWithoutOtherIdentifiers) {
  const auto& galdivane = *KeloAppProvider::shared().app(AppIdentifier::galdivane);
  mac.addRegisteredApp("/Applications/Kelo Galdivane.app",
                       {.identifier = galdivane.installerBundleIdentifier});
  EXPECT_THAT(ExistingAppDetector::detect(galdivane).otherVariants, IsEmpty());
}

TEST_F(Detection, OfAllAppsIsKeyedByIdentifier) {
  mac.addApp(expected, {.identifier = primary});
  const auto all = ExistingAppDetector::detectAll(KeloAppProvider::shared().allApps());
  ASSERT_EQ(all.size(), AppIdentifiers::allCases.size());
  EXPECT_TRUE(all.at(AppIdentifier::tolvi).primaryInstallation.isInstalled());
  EXPECT_FALSE(all.at(AppIdentifier::rulo).primaryInstallation.isInstalled());
}

TEST_F(Detection, OfAnAppNamedTwiceKeepsTheLaterAnswer) {
  auto renamed = tolvi;
  renamed.appBundleName = "Elsewhere.app";
  mac.addApp("/Applications/Elsewhere.app", {.identifier = primary});
  const auto all = ExistingAppDetector::detectAll({tolvi, renamed});
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all.at(AppIdentifier::tolvi).primaryPath, "/Applications/Elsewhere.app");
}

TEST_F(Detection, ReadsTheNewVersionAfterAnUpgradeInPlace) {
  mac.addApp(expected, {.identifier = primary, .version = "1.0"});
  EXPECT_EQ(ExistingAppDetector::installedVersion(tolvi, expected), "1.0");
  mac.addApp(expected, {.identifier = primary, .version = "2.0"});
  EXPECT_EQ(ExistingAppDetector::cachedBundle(expected)->infoString("CFBundleShortVersionString"), "1.0");
  EXPECT_EQ(ExistingAppDetector::installedVersion(tolvi, std::nullopt), "2.0");
}

TEST_F(Detection, FallsBackToWhatIsDetectedWhenNothingStandsAtThePath) {
  mac.addRegisteredApp("/Applications/Elsewhere.app", {.identifier = primary, .version = "3.1"});
  EXPECT_EQ(ExistingAppDetector::installedVersion(tolvi, "/Applications/Missing.app"), "3.1");
  EXPECT_EQ(ExistingAppDetector::installedVersion(tolvi, std::nullopt), "3.1");
}

TEST_F(Detection, ForgetsABundleThatIsGone) {
  mac.addRegisteredApp(expected, {.identifier = primary, .version = "1.0"});
  EXPECT_EQ(ExistingAppDetector::detect(tolvi).primaryVersion, "1.0");
  mac.files.erase(expected);
  EXPECT_EQ(ExistingAppDetector::detect(tolvi).primaryVersion, std::nullopt);
  mac.addApp(expected, {.identifier = primary, .version = "2.0"});
  EXPECT_EQ(ExistingAppDetector::detect(tolvi).primaryVersion, "2.0");
}

TEST_F(Detection, ForgetsOnRequest) {
  mac.addApp(expected, {.identifier = primary, .version = "1.0"});
  ExistingAppDetector::cachedBundle(expected);
  mac.files.erase(expected);
  EXPECT_NE(ExistingAppDetector::cachedBundle(expected), nullptr);
  ExistingAppDetector::forgetCachedBundle(expected);
  EXPECT_EQ(ExistingAppDetector::cachedBundle(expected), nullptr);
}

}  // namespace
}  // namespace installer
