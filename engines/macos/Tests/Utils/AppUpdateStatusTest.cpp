#include <gtest/gtest.h>

#include "Utils/UpdateChecker.h"

namespace installer {
namespace {

AppUpdateStatus installedApp(std::optional<std::string> installed, std::optional<std::string> latest) {
  AppUpdateStatus status;
  status.isInstalled = true;
  status.installedVersion = std::move(installed);
  status.latestVersion = std::move(latest);
  return status;
}

TEST(AppUpdateStatus, OffersAnUpdateToAnOlderInstalledCopyOnly) {
  EXPECT_TRUE(installedApp("1.9", "1.10").updateAvailable());
  EXPECT_FALSE(installedApp("1.10", "1.9").updateAvailable());
  EXPECT_FALSE(installedApp("1.2", "1.2.1").updateAvailable());
  EXPECT_FALSE(installedApp(std::nullopt, "2").updateAvailable());
  EXPECT_FALSE(installedApp("1", std::nullopt).updateAvailable());
}

TEST(AppUpdateStatus, OffersNothingForAnAppThatIsNotInstalled) {
  auto status = installedApp("1", "2");
  status.isInstalled = false;
  EXPECT_FALSE(status.updateAvailable());
  EXPECT_FALSE(status.updateAvailable("9"));
}

TEST(AppUpdateStatus, ComparesWithAGivenVersion) {
  EXPECT_TRUE(installedApp("1", "1").updateAvailable("2"));
  EXPECT_FALSE(installedApp("1", "2").updateAvailable(std::nullopt));
}

TEST(AppUpdateStatus, TellsWhereACopyCameFrom) {
  auto status = installedApp("1", "2");
  EXPECT_EQ(status.source(), "direct");
  status.isAppStore = true;
  EXPECT_EQ(status.source(), "appstore");
  EXPECT_TRUE(status.updateAvailable());
  status.isInstalled = false;
  EXPECT_EQ(status.source(), std::nullopt);
}

}  // namespace
}  // namespace installer
