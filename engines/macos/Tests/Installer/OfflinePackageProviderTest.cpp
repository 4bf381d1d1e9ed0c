#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Installer/OfflinePackageProvider.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {
namespace {

class BundledImages : public ::testing::Test {
 protected:
  SimulatedMachine mac;
  const Path packages = "/Volumes/Installer/Kelo-Desk-Installer.app/Contents/Resources/packages";
  const Path brennaImage = packages + "/brenna_installer.dmg";
  OfflinePackageProvider provider;
  Lines reports;
  std::optional<PackageProvider::Outcome> outcome;

  void brennaLiesThere() { mac.files.addFile(brennaImage, "an image"); }
  void theManifestSays(const Json& manifest) {
    mac.files.addFile(packages + "/packages.json", manifest.dump());
  }

  void acquire(AppIdentifier identifier = AppIdentifier::brenna) {
    reports.clear();
    outcome.reset();
    provider.acquirePackage(
        *KeloAppProvider::shared().app(identifier), "Kelo Brenna (1/1)",
        [this](const std::string& status, const std::string& detail, const Progress& progress) {
          EXPECT_FALSE(outcome.has_value());
          EXPECT_FALSE(progress.downloadedBytes || progress.totalBytes);
          reports.push_back(fmt::format("{} '{}' {}", status, detail, progress.percent));
        },
        [this](PackageProvider::Outcome result) {
          EXPECT_FALSE(outcome.has_value());
          outcome = std::move(result);
        });
    ASSERT_TRUE(outcome.has_value()) << "everything happens within the call";
  }
  void expectPackage(const std::optional<std::string>& checksum) {
    ASSERT_TRUE(outcome->has_value());
    EXPECT_EQ(**outcome, (AcquiredPackage{brennaImage, checksum, true, std::nullopt}));
  }
  void expectFailure(const ProviderError& error) {
    ASSERT_FALSE(outcome->has_value());
    EXPECT_EQ(std::get<ProviderError>(outcome->error()), error);
  }
  Lines log() { return mac.logLines("OfflinePackageProvider:"); }
};

TEST_F(BundledImages, AreFoundWithTheirChecksum) {
  brennaLiesThere();
  theManifestSays(
      {{"any key", {{"destination", "brenna_installer.dmg"}, {"checksum", "abcd"}, {"version", "3.0"}}}});
  acquire();
  expectPackage("abcd");
  EXPECT_EQ(reports, (Lines{"Preparing Kelo Brenna (1/1)... '' 0", "Found Kelo Brenna (1/1) '' 50"}));
  EXPECT_EQ(
      log(),
      (Lines{"INFO OfflinePackageProvider: Locating bundled DMG for Kelo Brenna",
             "INFO OfflinePackageProvider: Found bundled DMG at " + brennaImage,
             "INFO OfflinePackageProvider: Loaded 1 package(s) from packages.json (1 with checksum, 1 with "
             "version, 0 with size)",
             "INFO OfflinePackageProvider: sha256 checksum available for brenna_installer.dmg"}));
}

TEST_F(BundledImages, AreMissingWithoutResources) {
  mac.noResources();
  acquire();
  expectFailure(ProviderError::packageNotFound("Kelo Brenna"));
  EXPECT_EQ(reports, (Lines{"Preparing Kelo Brenna (1/1)... '' 0"}));
  EXPECT_EQ(log().back(), "INFO OfflinePackageProvider: Bundle resourceURL is nil");
}

TEST_F(BundledImages, AreMissingOneByOne) {
  brennaLiesThere();
  acquire(AppIdentifier::galdivane);
  expectFailure(ProviderError::packageNotFound("Kelo Galdivane"));
  EXPECT_EQ(log().back(),
            "ERROR OfflinePackageProvider: DMG not found at " + packages + "/galdi_installer.dmg");
}

TEST_F(BundledImages, WithoutAManifestAreAllInstallableWithAWarningEach) {
  Lines warnings{
      "WARN OfflinePackageProvider: packages.json not found or unreadable — skipping checksum verification"};
  for (const auto& app : KeloAppProvider::shared().allApps()) {
    mac.files.addFile(packages + "/" + app.tempFileName, "an image");
    acquire(app.id);
    ASSERT_TRUE(outcome->has_value()) << app.displayName;
    EXPECT_EQ((*outcome)->checksum, std::nullopt);
    warnings.push_back(fmt::format(
        "WARN OfflinePackageProvider: No checksum entry for {} — integrity check skipped", app.tempFileName));
  }
  EXPECT_EQ(mac.logLines("WARN OfflinePackageProvider"), warnings);
}

TEST_F(BundledImages, AreTiedToTheirEntryByItsDestinationAlone) {
  struct Row {
    Json manifest;
    std::optional<std::string> checksum;
  };
  for (const auto& row : std::vector<Row>{
           {{{"x", {{"destination", "brenna_installer.dmg"}, {"checksum", "abcd"}}}}, "abcd"},
           {{{"brenna_installer.dmg", {{"checksum", "abcd"}}}}, std::nullopt},
           {{{"x", {{"destination", "brenna_installer.dmg"}}}}, std::nullopt},
           {{{"x", {{"destination", "other.dmg"}, {"checksum", "abcd"}}}}, std::nullopt},
           {{{"x", {{"destination", "brenna_installer.dmg"}, {"checksumAlgorithm", "md5"}}}}, std::nullopt},
           {{{"x",
              {{"destination", "brenna_installer.dmg"},
               {"checksumAlgorithm", "SHA256"},
               {"checksum", "ab"}}}},
            "ab"}}) {
    startAfresh(mac);
    mac.files.addFile(brennaImage, "an image");
    mac.files.addFile(packages + "/packages.json", row.manifest.dump());
    acquire();
    ASSERT_TRUE(outcome->has_value()) << row.manifest;
    EXPECT_EQ((*outcome)->checksum, row.checksum) << row.manifest;
  }
}

TEST_F(BundledImages, WithAChecksumThatCannotBeComputedAreRefusedAndOnlyThose) {
  brennaLiesThere();
  mac.files.addFile(packages + "/rulo_installer.dmg", "an image");
  theManifestSays(
      {{"x", {{"destination", "brenna_installer.dmg"}, {"checksum", "ab"}, {"checksumAlgorithm", "MD5"}}},
       {"y", {{"destination", "rulo_installer.dmg"}, {"checksum", "cd"}}}});
  acquire();
  expectFailure(ProviderError::unsupportedChecksum("MD5"));
  EXPECT_EQ(log().back(),
            "INFO OfflinePackageProvider: brenna_installer.dmg records checksum algorithm 'MD5', which this "
            "engine cannot compute — refusing to install a payload it cannot verify");
  acquire(AppIdentifier::rulo);
  EXPECT_TRUE(outcome->has_value());
}

TEST_F(BundledImages, WithABrokenManifestAreInstallableWithAWarningEach) {
  brennaLiesThere();
  mac.files.addFile(packages + "/packages.json", "not JSON");
  acquire();
  expectPackage(std::nullopt);
  acquire();
  EXPECT_THAT(mac.logLines("No checksum entry"), ::testing::SizeIs(2));
  EXPECT_THAT(mac.logLines("Loaded 0 package(s)"), ::testing::SizeIs(1));
}

TEST_F(BundledImages, DoNotFollowAManifestThatChanges) {
  brennaLiesThere();
  theManifestSays({{"x", {{"destination", "brenna_installer.dmg"}, {"checksum", "ab"}}}});
  acquire();
  theManifestSays({{"x", {{"destination", "brenna_installer.dmg"}, {"checksum", "cd"}}}});
  acquire();
  expectPackage("ab");
}

TEST_F(BundledImages, HaveNothingToCancel) {
  provider.cancelAcquisition();
  EXPECT_TRUE(provider.isOfflineMode());
  EXPECT_EQ(log(), Lines{"INFO OfflinePackageProvider: Cancel requested (no-op)"});
}

}  // namespace
}  // namespace installer::test
