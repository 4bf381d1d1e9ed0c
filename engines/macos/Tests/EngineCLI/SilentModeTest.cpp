#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "EngineCLI/CommandLineFixture.h"
#include "SilentMode.h"
#include "Utils/RunOptions.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Lines;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class SilentMode : public test::CommandLineTest {};

TEST_F(SilentMode, WinsOverAnySubcommand) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"--silent"}, {"hello", "--silent"}, {"run", "--action", "install", "--silent"}}) {
    machine.network.setOffline();
    EXPECT_EQ(run(arguments), 5) << ::testing::PrintToString(arguments);
  }
  EXPECT_THAT(machine.streams.events(), IsEmpty());
}

TEST_F(SilentMode, IsTakenForTheExactWordOnly) {
  EXPECT_EQ(run({"--SILENT"}), 3);
  EXPECT_THAT(standardError(), StartsWith("Usage: engine-cli <hello"));
}

TEST_F(SilentMode, RefusesABadCommandLine) {
  EXPECT_EQ(run({"--silent", "--mode", "x"}), 3);
  const std::string complaint = "Unknown --mode value 'x'. Valid values: install, uninstall";
  EXPECT_EQ(standardError(), "Error: " + complaint + "\n\n" + std::string{RunOptions::usageHint} + "\n");
  EXPECT_THAT(machine.files.read(machine.logFile()), HasSubstr("invalid arguments")) << "at its end";
  EXPECT_THAT(machine.logLines(), Contains("INFO engine-cli: invalid arguments: " + complaint));
  EXPECT_TRUE(machine.streams.events().empty());
}

TEST_F(SilentMode, StaysSilentUnlessVerbose) {
  addInstalled(brenna, "1.0");
  EXPECT_EQ(run({"--silent", "--mode", "uninstall", "--apps", "brenna"}), 0);
  EXPECT_TRUE(standardError().empty());
  EXPECT_TRUE(machine.streams.events().empty());
}

TEST_F(SilentMode, EchoesTheLogWhenVerbose) {
  addInstalled(brenna, "1.0");
  EXPECT_EQ(run({"--silent", "--verbose", "--mode", "uninstall", "--apps", "brenna"}), 0);
  EXPECT_THAT(standardError(), HasSubstr("Kelo Desk Apps Installer — verbose mode\n"));
  EXPECT_THAT(standardError(), HasSubstr("] --- SILENT RUN SUMMARY action=uninstall exit_code=0 ---\n"));
}

TEST_F(SilentMode, WritesItsBannerForABadCommandLineToo) {
  EXPECT_EQ(run({"--silent", "--verbose", "--mode"}), 3);
  EXPECT_THAT(standardError(), StartsWith("Kelo Desk Apps Installer — verbose mode\n"));
  EXPECT_THAT(standardError(), HasSubstr("Error: --mode requires a value: install | uninstall\n\nUsage: "));
}

TEST_F(SilentMode, WritesNoBannerForAnotherSpelling) {
  EXPECT_EQ(run({"--silent", "--Verbose", "--mode"}), 3);
  EXPECT_THAT(standardError(), Not(HasSubstr("verbose mode")));
}

TEST_F(SilentMode, GoesOfflineOnRequestInThatSpellingOnly) {
  machine.network.setOffline();
  EXPECT_EQ(run({"--silent", "--offline"}), 2);
  EXPECT_EQ(run({"--silent", "--OFFLINE"}), 5);
}

TEST_F(SilentMode, NamesTheFlagAlsoWhenOnlyThePackagesTookItOffline) {
  addBesideInstaller(brenna, "2.0");
  EXPECT_EQ(run({"--silent", "--apps", "brenna"}), 0);
  EXPECT_THAT(machine.logLines("offline mode"),
              ::testing::ElementsAre("INFO engine-cli: offline mode (--offline flag)"));
}

TEST_F(SilentMode, GivesTheStatusOfTheRun) {
  addBesideInstaller(brenna, "2.0");
  EXPECT_EQ(run({"--silent", "--apps", "brenna,tolvi"}), 1);
  EXPECT_EQ(run({"--silent", "--apps", "brenna,tolvi", "--strict", "true"}), 2);
  EXPECT_THAT(machine.files.read(machine.logFile()), HasSubstr("--- END SUMMARY ---"));
}

TEST_F(SilentMode, EndsTheAppAtWorkWholeUponATerminationRequest) {
  addBesideInstaller(brenna, "2.0");
  addBesideInstaller(tolvi, "2.0");
  machine.programs.on(machine.paths.codesign).takes(10s);
  machine.signals.requestTerminationAt(5s);
  EXPECT_EQ(run({"--silent", "--apps", "brenna,tolvi", "--open-after-install", "true"}), 1);
  EXPECT_FALSE(machine.signals.endedAtOnce());
  EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app"));
  EXPECT_FALSE(machine.files.exists("/Applications/Kelo Tolvi.app"));
  EXPECT_THAT(machine.images.attached(), IsEmpty());
  EXPECT_THAT(machine.programs.starts(machine.paths.open), IsEmpty());
  const auto lines = machine.logLines();
  EXPECT_THAT(lines, Contains("INFO engine-cli: termination requested, cancelling the whole run"));
  EXPECT_EQ(
      Lines(lines.end() - 4, lines.end()),
      (Lines{"INFO --- SILENT RUN SUMMARY action=install exit_code=1 ---",
             "INFO   app=\"Kelo Brenna\" status=installed",
             "INFO   app=\"Kelo Tolvi\" status=failed detail=\"cancelled\"", "INFO --- END SUMMARY ---"}));
}

TEST_F(SilentMode, EndsARemovalWholeUponATerminationRequestAndStopsBeforeTheNext) {
  addInstalled(brenna, "1.0");
  addInstalled(tolvi, "1.0");
  machine.runningApps.launch(app(brenna).installerBundleIdentifier, "Brenna", 4711,
                             test::QuitBehaviour::quits(3s));
  machine.signals.requestTerminationAt(1s);
  EXPECT_EQ(run({"--silent", "--mode", "uninstall", "--apps", "brenna,tolvi,rulo"}), 1);
  EXPECT_FALSE(machine.files.exists("/Applications/Brenna.app"));
  EXPECT_TRUE(machine.files.exists("/Applications/Kelo Tolvi.app"));
  const auto lines = machine.logLines();
  EXPECT_EQ(
      Lines(lines.end() - 5, lines.end()),
      (Lines{"INFO --- SILENT RUN SUMMARY action=uninstall exit_code=1 ---",
             "INFO   app=\"Kelo Brenna\" status=uninstalled",
             "INFO   app=\"Kelo Tolvi\" status=failed detail=\"cancelled\"",
             "INFO   app=\"Kelo Rulo\" status=failed detail=\"cancelled\"", "INFO --- END SUMMARY ---"}));
}

TEST_F(SilentMode, IsEndedAtOnceByASecondTerminationRequest) {
  addBesideInstaller(brenna, "2.0");
  machine.programs.on(machine.paths.codesign).takes(10s);
  machine.signals.requestTerminationAt(5s);
  machine.signals.requestTerminationAt(6s);
  run({"--silent", "--apps", "brenna"});
  EXPECT_TRUE(machine.signals.endedAtOnce());
}

TEST_F(SilentMode, NeverReadsStandardInput) {
  addBesideInstaller(brenna, "2.0");
  machine.streams.feedLine(R"({"type": "cancel"})");
  EXPECT_EQ(run({"--silent", "--apps", "brenna"}), 0);
  EXPECT_THAT(machine.logLines("stdin"), IsEmpty());
}

}  // namespace
}  // namespace installer
