// Quitting before an install, with the time of each look.
#include <fmt/format.h>

#include "Installer/DMGInstallerStory.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class QuitBeforeInstall : public DMGInstallerStory {
 protected:
  static std::string askLine(int pid) {
    return fmt::format("INFO DMGInstaller: Brenna is running (pid {}) — sending graceful quit", pid);
  }
  static std::string forceLine(int pid) {
    return fmt::format("INFO DMGInstaller: Force killing Brenna (pid {})", pid);
  }
  void brennaRuns(int pid, QuitBehaviour behaviour, const char* identifier = brennaIdentifier) {
    mac.runningApps.launch(identifier, "Brenna", pid, behaviour);
  }
  // Virtual time from the start to the attach, which is the next step.
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
    mac.runningApps.launch(brennaIdentifier, "Brenna", 1, QuitBehaviour::quits(row.quitsAfter));
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
  brennaRuns(3, QuitBehaviour::ignoresQuit(), federalIdentifier);
  brennaRuns(1, QuitBehaviour::quits(1s));
  brennaRuns(2, QuitBehaviour::ignoresQuit());
  EXPECT_EQ(install(), 6s);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "terminate 2", "terminate 3",
                                                          "forceTerminate 2", "forceTerminate 3"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(mac.runningApps.requests()[static_cast<std::size_t>(i)].time, 0s);
}

TEST_F(QuitBeforeInstall, CallsAnAppWithoutANameUnknown) {
  mac.runningApps.launch(brennaIdentifier, std::nullopt, 7, QuitBehaviour::ignoresQuit());
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

}  // namespace
}  // namespace installer::test
