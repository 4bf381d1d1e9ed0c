#include <gtest/gtest.h>

#include "Installer/SilentRunner.h"
#include "Support/SimulatedMachine.h"

namespace installer {
namespace {

using test::Lines;

TEST(SilentSummary, WritesOneLineAnAppBetweenItsFrame) {
  test::SimulatedMachine machine;
  writeSummary("install", {{"Kelo Brenna", "installed", {}}, {"Kelo Tolvi", "failed", "why \"so\""}}, 1, {});
  EXPECT_EQ(machine.logLines(), (Lines{"INFO --- SILENT RUN SUMMARY action=install exit_code=1 ---",
                                       "INFO   app=\"Kelo Brenna\" status=installed",
                                       "INFO   app=\"Kelo Tolvi\" status=failed detail=\"why \"so\"\"",
                                       "INFO --- END SUMMARY ---"}));
}

TEST(SilentSummary, WritesNoDetailOfAFailureWithoutAMessage) {
  test::SimulatedMachine machine;
  writeSummary("install", {{"Kelo Rulo", "failed", {}}}, 2, {});
  EXPECT_EQ(machine.logLines().at(1), "INFO   app=\"Kelo Rulo\" status=failed");
}

TEST(SilentSummary, WritesItsNoteBehindTheApps) {
  test::SimulatedMachine machine;
  writeSummary("uninstall", {{"Kelo Rulo", "failed", ""}}, 3, "note");
  EXPECT_EQ(machine.logLines(), (Lines{"INFO --- SILENT RUN SUMMARY action=uninstall exit_code=3 ---",
                                       "INFO   app=\"Kelo Rulo\" status=failed detail=\"\"",
                                       "INFO   note=\"note\"", "INFO --- END SUMMARY ---"}));
}

}  // namespace
}  // namespace installer
