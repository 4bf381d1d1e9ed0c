#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/BundledPackages.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::IsEmpty;

class PackagesInResources : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;
  const Path packages = joined(mac.resources, "packages");

  void writeManifest(std::string_view text) { mac.files.addFile(joined(packages, "packages.json"), text); }
  static const AppInfo& app(AppIdentifier identifier) { return *KeloAppProvider::shared().app(identifier); }
  Lines lines() { return mac.logLines("OfflinePackageProvider"); }
};

TEST_F(PackagesInResources, AreThereWhenAnyNameEndsLikeADiskImage) {
  EXPECT_FALSE(BundledPackages::bundledPackagesAvailable());
  mac.files.addDirectory(packages);
  EXPECT_FALSE(BundledPackages::bundledPackagesAvailable());
  mac.files.addFile(joined(packages, "readme.txt"));
  EXPECT_FALSE(BundledPackages::bundledPackagesAvailable());
  mac.files.addFile(joined(packages, "BRENNA.DMG"));
  EXPECT_FALSE(BundledPackages::bundledPackagesAvailable());
  mac.files.addFile(joined(packages, "stranger.dmg"));
  EXPECT_TRUE(BundledPackages::bundledPackagesAvailable());
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(PackagesInResources, AreMissingWithoutResources) {
  mac.noResources();
  EXPECT_FALSE(BundledPackages::bundledPackagesAvailable());
  EXPECT_THAT(BundledPackages::manifest(), IsEmpty());
  EXPECT_EQ(BundledPackages::packagesFolder(), std::nullopt);
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(PackagesInResources, AreListedByDestinationWhateverTheirKey) {
  writeManifest(R"({"some key": {"destination": "brenna_installer.dmg", "version": "4.2", "size": 1000,
                                 "checksum": "00"},
                    "rulo_installer.dmg": {"version": "1.0", "size": 5}})");
  EXPECT_EQ(BundledPackages::bundledVersion(app(AppIdentifier::brenna)), "4.2");
  EXPECT_EQ(BundledPackages::bundledSize(app(AppIdentifier::brenna)), 1000);
  EXPECT_EQ(BundledPackages::bundledVersion(app(AppIdentifier::rulo)), std::nullopt);
  EXPECT_EQ(BundledPackages::bundledSize(app(AppIdentifier::rulo)), std::nullopt);
  EXPECT_EQ(BundledPackages::manifest().size(), 1U);
}

TEST_F(PackagesInResources, AreCountedInTheLog) {
  writeManifest(R"({"a": {"destination": "a.dmg", "checksum": "00", "checksumAlgorithm": "SHA256", "size": 1},
                    "b": {"destination": "b.dmg", "checksum": "00", "checksumAlgorithm": "md5",
                          "version": "1"},
                    "c": {"destination": "c.dmg", "version": "2", "size": 0},
                    "d": {"checksum": "00", "version": "3", "size": 4}})");
  EXPECT_EQ(BundledPackages::manifest().size(), 3U);
  EXPECT_EQ(lines(), Lines{"INFO OfflinePackageProvider: Loaded 3 package(s) from packages.json (1 with "
                           "checksum, 2 with version, 1 with size)"});
}

TEST_F(PackagesInResources, WithoutAManifestCostAWarning) {
  mac.files.addFile(joined(packages, "brenna_installer.dmg"));
  EXPECT_THAT(BundledPackages::manifest(), IsEmpty());
  EXPECT_EQ(BundledPackages::bundledVersion(app(AppIdentifier::brenna)), std::nullopt);
  EXPECT_EQ(lines(), (Lines{"WARN OfflinePackageProvider: packages.json not found or unreadable — skipping "
                            "checksum verification",
                            "INFO OfflinePackageProvider: The file “packages.json” couldn’t be opened "
                            "because there is no such file."}));
}

TEST_F(PackagesInResources, WithAManifestThatIsNoJSONAreNone) {
  writeManifest("<html>");
  EXPECT_THAT(BundledPackages::manifest(), IsEmpty());
  EXPECT_EQ(lines(), (Lines{"INFO OfflinePackageProvider: Loaded 0 package(s) from packages.json (0 with "
                            "checksum, 0 with version, 0 with size)",
                            "INFO OfflinePackageProvider: packages.json: The text isn't valid JSON around "
                            "byte 1."}));
}

TEST_F(PackagesInResources, AreReadOncePerProcess) {
  writeManifest(R"({"a": {"destination": "brenna_installer.dmg", "version": "1"}})");
  EXPECT_EQ(BundledPackages::bundledVersion(app(AppIdentifier::brenna)), "1");
  writeManifest(R"({"a": {"destination": "brenna_installer.dmg", "version": "2"}})");
  EXPECT_EQ(BundledPackages::bundledVersion(app(AppIdentifier::brenna)), "1");
}

}  // namespace
}  // namespace installer
