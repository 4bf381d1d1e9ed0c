#include <gtest/gtest.h>

#include "Engine/EngineControllerFixture.h"
#include "Engine/RunEvents.h"

namespace installer {
namespace {

using UpdateEntries::catalogEntry;
using enum PackageSourceMode;
using enum AppIdentifier;

class UpdateEntriesTest : public test::EngineControllerTest {
 protected:
  AppUpdateStatus status{.app = app(brenna),
                         .installedVersion = {},
                         .installedPath = {},
                         .latestVersion = {},
                         .downloadSizeBytes = {},
                         .isInstalled = false,
                         .isAppStore = false};
};

TEST_F(UpdateEntriesTest, KnowsNoRequirementWithoutASize) {
  status.app.sizeBytes = std::nullopt;
  EXPECT_EQ(catalogEntry(status, online).sizeBytes, std::nullopt);
  EXPECT_EQ(catalogEntry(status, online).requiredBytes, std::nullopt);
  EXPECT_EQ(catalogEntry(status, offline).sizeBytes, std::nullopt);
}

TEST_F(UpdateEntriesTest, KnowsNoWebPageWithoutOne) {
  status.app.webURL = std::nullopt;
  EXPECT_EQ(catalogEntry(status, online).webUrl, std::nullopt);
}

TEST_F(UpdateEntriesTest, OffersAnUpdateOnlyToAnOlderInstalledCopyOfKnownVersion) {
  struct Row {
    bool isInstalled;
    std::optional<std::string> installed;
    std::optional<std::string> latest;
    bool available;
  };
  const std::vector<Row> rows{{true, "1.0", "2.0", true},   {true, "2.0", "2.0", false},
                              {true, "2.1", "2.0", false},  {true, "1.0", {}, false},
                              {true, {}, "2.0", false},     {false, {}, "2.0", false},
                              {false, "1.0", "2.0", false}, {true, "1.9", "1.10", true}};
  for (const auto& row : rows) {
    status.isInstalled = row.isInstalled;
    status.installedVersion = row.installed;
    status.latestVersion = row.latest;
    EXPECT_EQ(catalogEntry(status, online).updateAvailable, row.available)
        << row.isInstalled << row.installed.value_or("-") << row.latest.value_or("-");
    EXPECT_EQ(UpdateEntries::updateCheckEntry(status).updateAvailable, row.available);
  }
}

TEST_F(UpdateEntriesTest, NamesWhereAnInstalledCopyCameFrom) {
  EXPECT_EQ(catalogEntry(status, online).source, std::nullopt);
  status.isInstalled = true;
  EXPECT_EQ(catalogEntry(status, online).source, CopySource::direct);
  status.isAppStore = true;
  EXPECT_EQ(catalogEntry(status, online).source, CopySource::appStore);
}

TEST_F(UpdateEntriesTest, MeasuresThePackagesBesideTheInstallerOfflineOnly) {
  machine.files.addFile(machine.resources + "/packages/packages.json",
                        R"({"x": {"destination": "brenna_installer.dmg", "size": 1000}})");
  EXPECT_EQ(catalogEntry(status, offline).sizeBytes, 1000);
  EXPECT_EQ(catalogEntry(status, online).sizeBytes, status.app.sizeBytes);
}

TEST_F(UpdateEntriesTest, PrefersTheVersionOfTheSweepToThatOfTheManifest) {
  machine.files.addFile(machine.resources + "/packages/packages.json",
                        R"({"x": {"destination": "brenna_installer.dmg", "version": "3.0"}})");
  status.latestVersion = "2.0";
  EXPECT_EQ(catalogEntry(status, offline).latestVersion, "2.0");
  status.latestVersion = std::nullopt;
  EXPECT_EQ(catalogEntry(status, offline).latestVersion, "3.0");
  EXPECT_EQ(catalogEntry(status, online).latestVersion, std::nullopt);
}

}  // namespace
}  // namespace installer
