#include <gmock/gmock.h>

#include "Engine/EngineControllerFixture.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Lines;
using test::Operation;
using ::testing::IsEmpty;
using Apps = std::vector<AppIdentifier>;

class EngineUninstall : public test::EngineControllerTest {
 protected:
  std::int32_t uninstall(const Apps& apps, bool strict = false) {
    return std::to_underlying(controller->runUninstall(apps, strict));
  }
  void addAll() {
    for (const auto identifier : AppIdentifiers::allCases) addInstalled(identifier, "1.0");
  }
  // Runs `work` after one of the three seconds that brenna takes to quit.
  void whileTheFirstAppQuits(Work work) {
    machine.runningApps.launch(app(brenna).installerBundleIdentifier, "Brenna", 77,
                               test::QuitBehaviour::quits(3s));
    machine.dispatch.schedule(1s, std::move(work));
  }
};

TEST_F(EngineUninstall, TellsAWholeRunInOrder) {
  addInstalled(brenna, "1.0");
  EXPECT_EQ(uninstall({brenna, tolvi}), 0);
  EXPECT_EQ(transcript(), (Lines{"stage brenna uninstall 1/2", "progress brenna ~100% UNINSTALLING",
                                 "app-result brenna uninstalled", "stage tolvi uninstall 2/2",
                                 "progress tolvi ~100% UNINSTALLING", "app-result tolvi already_absent",
                                 "done uninstall 0: brenna uninstalled, tolvi already_absent"}));
  EXPECT_FALSE(machine.files.exists("/Applications/Brenna.app"));
}

TEST_F(EngineUninstall, RemovesTheWholeCatalogForAnEmptyList) {
  addAll();
  EXPECT_EQ(uninstall({}), 0);
  EXPECT_EQ(outcome().back(), fmt::format("done uninstall 0: {}", fmt::join(eachApp("uninstalled"), ", ")));
  EXPECT_THAT(machine.files.tree("/Applications"), IsEmpty());
}

TEST_F(EngineUninstall, CarriesNeitherPathNorVersion) {
  addInstalled(brenna, "1.0");
  uninstall({brenna});
  const auto result = machine.streams.events("app-result").at(0);
  EXPECT_TRUE(result["installedPath"].is_null());
  EXPECT_TRUE(result["installedVersion"].is_null());
}

TEST_F(EngineUninstall, LeavesAnAppStoreCopyAlone) {
  addAppStoreCopy(rulo, "1.0");
  EXPECT_EQ(uninstall({rulo}), 0);
  EXPECT_EQ(outcome(), (Lines{"app-result rulo skipped SKIPPED", "done uninstall 0: rulo skipped SKIPPED"}));
  EXPECT_TRUE(machine.files.exists("/Applications/Kelo Rulo.app"));
}

TEST_F(EngineUninstall, CountsARefusedPromptAsADeniedPermission) {
  addInstalled(brenna, "1.0");
  machine.files.setWritable("/Applications", false);
  machine.administrator.dismissesAlways();
  EXPECT_EQ(uninstall({brenna}), 4);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna failed UNINSTALL_AUTH_CANCELLED",
                              "done uninstall 4: brenna failed UNINSTALL_AUTH_CANCELLED"}));
}

TEST_F(EngineUninstall, ReportsAPrivilegedRemovalThatFailsAsADeniedPermission) {
  addInstalled(brenna, "1.0");
  machine.files.setWritable("/Applications", false);
  machine.administrator.failsNext(1);
  EXPECT_EQ(uninstall({brenna}), 4);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna failed UNINSTALL_PERMISSION_DENIED",
                              "done uninstall 4: brenna failed UNINSTALL_PERMISSION_DENIED"}));
}

TEST_F(EngineUninstall, AsksForAPasswordWhereItMust) {
  addInstalled(brenna, "1.0");
  machine.files.setWritable("/Applications", false);
  EXPECT_EQ(uninstall({brenna}), 0);
  EXPECT_EQ(machine.administrator.commandLines().size(), 1U);
}

TEST_F(EngineUninstall, ReportsAnyOtherFailure) {
  addInstalled(brenna, "1.0");
  machine.files.failAlways(Operation::move, "/Applications/Brenna.app",
                           Error{std::string{ErrorDomain::cocoa}, 512, "disk trouble", nullptr});
  EXPECT_EQ(uninstall({brenna}), 2);
  EXPECT_EQ(outcome(), (Lines{"app-result brenna failed UNINSTALL_FAILED",
                              "done uninstall 2: brenna failed UNINSTALL_FAILED"}));
}

TEST_F(EngineUninstall, GoesOnAfterAFailure) {
  addInstalled(brenna, "1.0");
  addInstalled(tolvi, "1.0");
  machine.files.failAlways(Operation::move, "/Applications/Brenna.app",
                           Error{std::string{ErrorDomain::cocoa}, 512, "disk trouble", nullptr});
  EXPECT_EQ(uninstall({brenna, tolvi}), 1);
  EXPECT_EQ(uninstall({brenna, tolvi}, true), 2);
}

TEST_F(EngineUninstall, StopsWithoutAnyValidApp) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(uninstall({rulo}), 3);
  EXPECT_EQ(transcript(), (Lines{"log error: No valid app identifiers supplied", "done uninstall 3:"}));
}

TEST_F(EngineUninstall, WorksOnAnExpiredInstallerAndWithoutANetwork) {
  machine.setConfiguration(R"({"apps": {}, "expiresOn": {"online": "2026-02-28"}})");
  machine.network.setOffline();
  addInstalled(brenna, "1.0");
  EXPECT_EQ(uninstall({brenna}), 0);
  EXPECT_THAT(machine.network.requests(), IsEmpty());
  EXPECT_TRUE(machine.streams.events("done").at(0).contains("installerRetired"));
}

// Cancels.

TEST_F(EngineUninstall, StopsBeforeTheNextAppUponACancelOfTheRun) {
  addAll();
  whileTheFirstAppQuits([this] { controller->cancelAll(); });
  EXPECT_EQ(uninstall({brenna, tolvi, rulo}), 1);
  EXPECT_EQ(transcript(),
            (Lines{"stage brenna uninstall 1/3", "progress brenna ~100% UNINSTALLING",
                   "app-result brenna uninstalled", "app-result tolvi cancelled", "app-result rulo cancelled",
                   "done uninstall 1: brenna uninstalled, tolvi cancelled, rulo cancelled"}));
}

TEST_F(EngineUninstall, StopsAllThatIsToComeUponACancelOfOneApp) {
  addAll();
  whileTheFirstAppQuits([this] { controller->cancelApp("RULO"); });
  EXPECT_EQ(uninstall({brenna, tolvi, rulo}), 1);
  EXPECT_EQ(outcome().back(), "done uninstall 1: brenna uninstalled, tolvi cancelled, rulo cancelled");
  EXPECT_TRUE(machine.files.exists("/Applications/Kelo Tolvi.app"));
}

TEST_F(EngineUninstall, IgnoresACancelOfANameThatIsNoApp) {
  addAll();
  whileTheFirstAppQuits([this] { controller->cancelApp("mozi"); });
  EXPECT_EQ(uninstall({brenna, tolvi}), 0);
}

TEST_F(EngineUninstall, HearsACancelThatWasPostedBeforeItsFirstApp) {
  addAll();
  controller->cancelAll();
  EXPECT_EQ(uninstall({brenna, tolvi}), 1);
  EXPECT_EQ(transcript(), (Lines{"app-result brenna cancelled", "app-result tolvi cancelled",
                                 "done uninstall 1: brenna cancelled, tolvi cancelled"}));
}

// Waits for another engine.

TEST_F(EngineUninstall, WaitsForItsTurnAndFindsWhatTheOtherEngineLeft) {
  addInstalled(brenna, "1.0");
  machine.files.setLockedByAnother("/Applications");
  machine.dispatch.schedule(100s, [this] {
    machine.files.erase("/Applications/Brenna.app");
    machine.files.setLockedByAnother("/Applications", false);
  });
  EXPECT_EQ(uninstall({brenna}), 0);
  EXPECT_EQ(transcript(),
            (Lines{"log info: Waiting for another Kelo Desk Installer, which is at work in "
                   "/Applications, before Kelo Brenna",
                   "stage brenna uninstall 1/1", "progress brenna ~100% UNINSTALLING",
                   "app-result brenna already_absent", "done uninstall 0: brenna already_absent"}));
}

TEST_F(EngineUninstall, EndsTheWaitForItsTurnAtACancel) {
  addInstalled(brenna, "1.0");
  machine.files.setLockedByAnother("/Applications");
  machine.dispatch.schedule(20s, [this] { controller->cancelAll(); });
  EXPECT_EQ(uninstall({brenna, tolvi}), 1);
  EXPECT_EQ(outcome().back(), "done uninstall 1: brenna cancelled, tolvi cancelled");
  EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app"));
}

TEST_F(EngineUninstall, FailsWhenTheWaitsLimitPasses) {
  addInstalled(brenna, "1.0");
  machine.files.setLockedByAnother("/Applications");
  EXPECT_EQ(uninstall({brenna}), 2);
  EXPECT_EQ(outcome().back(), "done uninstall 2: brenna failed UNINSTALL_FAILED");
  EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app"));
}

}  // namespace
}  // namespace installer
