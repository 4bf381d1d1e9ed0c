#include <gtest/gtest.h>

#include "Installer/RunRules.h"
#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using enum AppIdentifier;

class RunRulesTest : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;

  static std::vector<AppIdentifier> resolved(const std::vector<AppIdentifier>& identifiers) {
    std::vector<AppIdentifier> list;
    for (const auto& app : RunRules::resolveApps(identifiers)) list.push_back(app.id);
    return list;
  }
};

using Apps = std::vector<AppIdentifier>;

TEST_F(RunRulesTest, ResolveAnEmptyListToTheWholeCatalog) {
  EXPECT_EQ(resolved({}), Apps(AppIdentifiers::allCases.begin(), AppIdentifiers::allCases.end()));
}

TEST_F(RunRulesTest, ResolveAppsInTheOrderGivenWithDuplicates) {
  EXPECT_EQ(resolved({rulo, brenna, rulo}), (Apps{rulo, brenna, rulo}));
}

TEST_F(RunRulesTest, DropAnExcludedAppWithoutAWord) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(resolved({rulo, tolvi}), Apps{tolvi});
  EXPECT_EQ(resolved({rulo}), Apps{});
  EXPECT_EQ(machine.logLines("RunRules"), test::Lines{});
}

TEST_F(RunRulesTest, SayWhenTheInstallerExpiredAndWhereToGo) {
  InstallerRetirement retirement{RetirementReason::expired, "https://get.test/", "2026-02-28"};
  EXPECT_EQ(RunRules::expiryMessage(retirement),
            "This installer expired on 2026-02-28. Download a current installer from https://get.test/.");
  retirement.expiresOn = std::nullopt;
  EXPECT_EQ(
      RunRules::expiryMessage(retirement),
      "This installer expired on an earlier date. Download a current installer from https://get.test/.");
}

TEST_F(RunRulesTest, ReadADeniedPermissionOutOfTheMessagesOfFailures) {
  struct Row {
    bool success;
    bool cancelled;
    std::optional<std::string> message;
    bool denied;
  };
  const std::vector<Row> rows{
      {false, false, "You don't have permission to save the file", true},
      {false, false, "Permission denied", true},
      {false, false, "NO PERMISSIONS", true},
      {false, false, "no room", false},
      {false, false, "", false},
      {false, false, std::nullopt, false},
      {false, true, "Permission denied", false},
      {true, false, "Permission denied", false},
  };
  for (const auto& row : rows) {
    auto result = AppInstallResult::failed({}, row.message, {});
    result.success = row.success;
    result.cancelled = row.cancelled;
    EXPECT_EQ(RunRules::anyPermissionDenied(std::vector{result}), row.denied)
        << row.message.value_or("(absent)");
  }
  EXPECT_FALSE(RunRules::anyPermissionDenied({}));
}

TEST_F(RunRulesTest, FindADeniedPermissionAmongOtherResults) {
  const auto good = AppInstallResult::installed({}, {});
  const auto denied = AppInstallResult::failed({}, "Permission denied", {});
  EXPECT_TRUE(RunRules::anyPermissionDenied(std::vector{good, denied, good}));
}

}  // namespace
}  // namespace installer
