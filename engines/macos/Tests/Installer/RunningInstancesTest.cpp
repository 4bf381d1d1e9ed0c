#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Installer/RunningInstances.h"
#include "Support/SimulatedMachine.h"

namespace installer::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RunningInstances : public ::testing::Test {
 protected:
  SimulatedMachine mac;

  std::vector<std::int32_t> found(const std::vector<std::string>& identifiers) {
    std::vector<std::int32_t> processes;
    for (const auto& one : runningInstances(identifiers)) processes.push_back(one.processIdentifier);
    return processes;
  }
};

TEST_F(RunningInstances, OfNoIdentifierAreNone) {
  mac.runningApps.launch("com.kelo.rulo", "Rulo", 1);
  EXPECT_THAT(found({}), IsEmpty());
}

TEST_F(RunningInstances, StandInTheOrderOfTheIdentifiers) {
  mac.runningApps.launch("com.kelo.rulo", "Rulo", 1);
  mac.runningApps.launch("com.kelo.rulo.fed", "Rulo Fed", 2);
  mac.runningApps.launch("com.kelo.rulo", "Rulo", 3);
  mac.runningApps.launch("com.kelo.other", "Other", 4);
  EXPECT_THAT(found({"com.kelo.rulo.fed", "com.kelo.nothing", "com.kelo.rulo"}), ElementsAre(2, 1, 3));
}

TEST_F(RunningInstances, AreNamedAsOftenAsTheirIdentifierIs) {
  mac.runningApps.launch("com.kelo.rulo", "Rulo", 1);
  EXPECT_THAT(found({"com.kelo.rulo", "com.kelo.rulo"}), ElementsAre(1, 1));
}

TEST_F(RunningInstances, WithoutANameAreUnknown) {
  mac.runningApps.launch("com.kelo.rulo", "Rulo", 1);
  mac.runningApps.launch("com.kelo.rulo", std::nullopt, 2);
  const auto running = runningInstances({"com.kelo.rulo"});
  ASSERT_EQ(running.size(), 2U);
  EXPECT_EQ(nameOf(running[0]), "Rulo");
  EXPECT_EQ(nameOf(running[1]), "unknown");
}

}  // namespace
}  // namespace installer::test
