#include <gtest/gtest.h>

#include "Models/PackageProvider.h"
#include "PackageSource.h"
#include "Support/SimulatedMachine.h"

namespace installer {
namespace {

using test::Lines;

class PackageSourceTest : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;
  void addPackage() { machine.files.addFile(machine.resources + "/packages/any.dmg"); }
};

TEST_F(PackageSourceTest, IsTheNetworkSilently) {
  EXPECT_FALSE(makeProvider(false)->isOfflineMode());
  EXPECT_EQ(machine.logLines("offline mode"), Lines{});
}

TEST_F(PackageSourceTest, IsOfflineWhenAskedFor) {
  EXPECT_TRUE(makeProvider(true)->isOfflineMode());
  EXPECT_EQ(machine.logLines("offline mode"), (Lines{"INFO engine-cli: offline mode (--offline flag)"}));
}

TEST_F(PackageSourceTest, IsOfflineWhenPackagesLieBesideTheInstaller) {
  addPackage();
  EXPECT_TRUE(makeProvider(false)->isOfflineMode());
  EXPECT_EQ(machine.logLines("offline mode"),
            (Lines{"INFO engine-cli: offline mode (bundled packages detected)"}));
}

TEST_F(PackageSourceTest, NamesTheFlagWhenBothHold) {
  addPackage();
  EXPECT_TRUE(makeProvider(true)->isOfflineMode());
  EXPECT_EQ(machine.logLines("offline mode"), (Lines{"INFO engine-cli: offline mode (--offline flag)"}));
}

}  // namespace
}  // namespace installer
