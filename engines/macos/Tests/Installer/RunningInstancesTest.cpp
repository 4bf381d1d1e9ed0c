// Quitting before an install, with the time of each query.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Installer/AppUninstallerStory.h"
#include "Installer/DMGInstallerStory.h"
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

using namespace std::chrono_literals;

class QuitBeforeInstall : public DMGInstallerStory {
 protected:
  static std::string askLine(int pid) {
    return fmt::format("INFO DMGInstaller: Brenna is running (pid {}) — sending graceful quit", pid);
  }
  static std::string forceLine(int pid) {
    return fmt::format("INFO DMGInstaller: Force killing Brenna (pid {})", pid);
  }
  void brennaRuns(int pid, QuitBehaviour behaviour, const char* identifier = kBrennaIdentifier) {
    mac.runningApps.launch(identifier, "Brenna", pid, behaviour);
  }
  // The virtual time from the start to the attach, which is the next step.
  Duration install() {
    Duration attachedAt{-1};
    mac.programs.on(mac.paths.hdiutil).does([&](const Arguments&) {
      attachedAt = mac.dispatch.elapsed();
      return ProgramExit{1, "", ""};
    });
    DMGInstallerStory::install();
    return attachedAt;
  }
};

TEST_F(QuitBeforeInstall, IsNotedNowhereWhenNothingRuns) {
  EXPECT_EQ(install(), 0s);
  EXPECT_THAT(mac.logLines("DMGInstaller:"), IsEmpty());
  EXPECT_THAT(mac.runningApps.requests(), IsEmpty());
}

TEST_F(QuitBeforeInstall, GoesOnAtOnceWhenTheAppHasQuitByTheFirstLook) {
  brennaRuns(1, QuitBehaviour::quits(0s));
  EXPECT_LE(install(), 250ms);
  EXPECT_THAT(mac.logLines("DMGInstaller:"), ElementsAre(askLine(1)));
}

TEST_F(QuitBeforeInstall, LooksFourTimesASecondAndDoesNotSettleAfterAQuit) {
  struct Row {
    Duration quitsAfter;
    Duration seenAt;
  };
  for (const auto& row : {Row{100ms, 250ms}, Row{260ms, 500ms}, Row{1100ms, 1250ms}, Row{4600ms, 4750ms}}) {
    startAfresh(mac);
    mac.runningApps.launch(kBrennaIdentifier, "Brenna", 1, QuitBehaviour::quits(row.quitsAfter));
    Duration attachedAt{-1};
    mac.programs.on(mac.paths.hdiutil).does([&](const Arguments&) {
      attachedAt = mac.dispatch.elapsed();
      return ProgramExit{1, "", ""};
    });
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    mac.dispatch.runOnWorker([&] { DMGInstaller::installFromDMG("/x.dmg", brennaApp); });
    EXPECT_EQ(attachedAt, row.seenAt) << row.quitsAfter.count();
    EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1"));
  }
}

TEST_F(QuitBeforeInstall, ForcesWhatIgnoresTheRequestAfterFiveSecondsAndThenSettlesForOne) {
  brennaRuns(1, QuitBehaviour::ignoresQuit());
  EXPECT_EQ(install(), 6s);
  ASSERT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "forceTerminate 1"));
  EXPECT_EQ(mac.runningApps.requests()[1].time, 5s);
  EXPECT_THAT(mac.logLines("DMGInstaller:"), ElementsAre(askLine(1), forceLine(1)));
}

TEST_F(QuitBeforeInstall, ForcesNothingThatQuitsInTheLastMoment) {
  brennaRuns(1, QuitBehaviour::quits(4900ms));
  EXPECT_EQ(install(), 5s);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1"));
}

TEST_F(QuitBeforeInstall, GoesOnOverAnAppThatSurvivesForce) {
  brennaRuns(1, QuitBehaviour::survivesForce());
  EXPECT_EQ(install(), 6s);
  EXPECT_TRUE(mac.runningApps.isRunning(1));
}

TEST_F(QuitBeforeInstall, AsksAllVariantsBeforeItWaitsAndForcesOnlyWhatRemains) {
  brennaRuns(3, QuitBehaviour::ignoresQuit(), kFederalIdentifier);
  brennaRuns(1, QuitBehaviour::quits(1s));
  brennaRuns(2, QuitBehaviour::ignoresQuit());
  EXPECT_EQ(install(), 6s);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "terminate 2", "terminate 3",
                                                          "forceTerminate 2", "forceTerminate 3"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(mac.runningApps.requests()[static_cast<std::size_t>(i)].time, 0s);
}

TEST_F(QuitBeforeInstall, CallsAnAppWithoutANameUnknown) {
  mac.runningApps.launch(kBrennaIdentifier, std::nullopt, 7, QuitBehaviour::ignoresQuit());
  install();
  EXPECT_THAT(mac.logLines("DMGInstaller:"),
              ElementsAre("INFO DMGInstaller: unknown is running (pid 7) — sending graceful quit",
                          "INFO DMGInstaller: Force killing unknown (pid 7)"));
}

TEST_F(QuitBeforeInstall, LeavesNoTimerBehind) {
  brennaRuns(1, QuitBehaviour::survivesForce());
  install();
  mac.dispatch.advance(60s);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "forceTerminate 1"));
}

class QuitBeforeRemoval : public AppUninstallerStory {
 protected:
  void SetUp() override { brennaIsInstalled(); }
  void brennaRuns(int pid, QuitBehaviour behaviour, const char* identifier = kBrennaIdentifier) {
    mac.runningApps.launch(identifier, "Brenna", pid, behaviour);
  }
  // The virtual time of the removal; only quitting takes time.
  Duration uninstall() {
    const auto start = mac.dispatch.elapsed();
    AppUninstallerStory::uninstall(Password::isNeverAskedFor);
    EXPECT_TRUE(result.success);
    return mac.dispatch.elapsed() - start;
  }
};

TEST_F(QuitBeforeRemoval, IsNotedNowhereWhenNothingRuns) {
  EXPECT_EQ(uninstall(), 0s);
  EXPECT_THAT(mac.logLines("quit"), IsEmpty());
}

TEST_F(QuitBeforeRemoval, LooksTwiceASecondAndDoesNotSettleAfterAQuit) {
  struct Row {
    Duration quitsAfter;
    Duration took;
  };
  for (const auto& row : {Row{100ms, 500ms}, Row{510ms, 1s}, Row{4400ms, 4500ms}}) {
    startAfresh(mac);
    const AppInfo brennaApp = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    mac.addRegisteredApp(path, brenna());
    mac.runningApps.launch(kBrennaIdentifier, "Brenna", 1, QuitBehaviour::quits(row.quitsAfter));
    AppUninstaller::uninstall(brennaApp, false);
    EXPECT_EQ(mac.dispatch.elapsed(), row.took) << row.quitsAfter.count();
    EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1"));
  }
}

TEST_F(QuitBeforeRemoval, ForcesWhatIgnoresTheRequestAfterFiveSecondsAndSettlesForHalfASecond) {
  brennaRuns(1, QuitBehaviour::ignoresQuit());
  EXPECT_EQ(uninstall(), 5500ms);
  ASSERT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "forceTerminate 1"));
  EXPECT_EQ(mac.runningApps.requests()[1].time, 5s);
  EXPECT_THAT(mac.logLines("(pid"),
              ElementsAre("INFO AppUninstaller: Sending graceful quit to Brenna (pid 1)",
                          "INFO AppUninstaller: Force killing Brenna (pid 1)"));
}

TEST_F(QuitBeforeRemoval, SettlesAlsoWhenTheAppQuitAfterTheLastLook) {
  brennaRuns(1, QuitBehaviour::quits(4900ms));
  EXPECT_EQ(uninstall(), 5500ms);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1"));
}

TEST_F(QuitBeforeRemoval, GoesOnOverAnAppThatSurvivesForce) {
  brennaRuns(1, QuitBehaviour::survivesForce());
  EXPECT_EQ(uninstall(), 5500ms);
  EXPECT_TRUE(mac.runningApps.isRunning(1));
}

TEST_F(QuitBeforeRemoval, AsksAllVariantsBeforeItWaits) {
  brennaRuns(2, QuitBehaviour::ignoresQuit(), kFederalIdentifier);
  brennaRuns(1, QuitBehaviour::quits(1s));
  EXPECT_EQ(uninstall(), 5500ms);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "terminate 2", "forceTerminate 2"));
  EXPECT_EQ(mac.runningApps.requests()[1].time, 0s);
}

TEST_F(QuitBeforeRemoval, CallsAnAppWithoutANameUnknown) {
  mac.runningApps.launch(kBrennaIdentifier, std::nullopt, 7, QuitBehaviour::ignoresQuit());
  uninstall();
  EXPECT_THAT(mac.logLines("(pid"),
              ElementsAre("INFO AppUninstaller: Sending graceful quit to unknown (pid 7)",
                          "INFO AppUninstaller: Force killing unknown (pid 7)"));
}

}  // namespace
}  // namespace installer::test
