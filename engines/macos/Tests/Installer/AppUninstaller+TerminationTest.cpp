// Quitting before a removal, with the time of each look.
#include "Installer/AppUninstallerStory.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class QuitBeforeRemoval : public AppUninstallerStory {
 protected:
  void SetUp() override { brennaIsInstalled(); }
  void brennaRuns(int pid, QuitBehaviour behaviour, const char* identifier = brennaIdentifier) {
    mac.runningApps.launch(identifier, "Brenna", pid, behaviour);
  }
  // Virtual time that the removal took; only quitting takes any.
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
    mac.runningApps.launch(brennaIdentifier, "Brenna", 1, QuitBehaviour::quits(row.quitsAfter));
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
  brennaRuns(2, QuitBehaviour::ignoresQuit(), federalIdentifier);
  brennaRuns(1, QuitBehaviour::quits(1s));
  EXPECT_EQ(uninstall(), 5500ms);
  EXPECT_THAT(mac.runningApps.requestLines(), ElementsAre("terminate 1", "terminate 2", "forceTerminate 2"));
  EXPECT_EQ(mac.runningApps.requests()[1].time, 0s);
}

TEST_F(QuitBeforeRemoval, CallsAnAppWithoutANameUnknown) {
  mac.runningApps.launch(brennaIdentifier, std::nullopt, 7, QuitBehaviour::ignoresQuit());
  uninstall();
  EXPECT_THAT(mac.logLines("(pid"),
              ElementsAre("INFO AppUninstaller: Sending graceful quit to unknown (pid 7)",
                          "INFO AppUninstaller: Force killing unknown (pid 7)"));
}

}  // namespace
}  // namespace installer::test
