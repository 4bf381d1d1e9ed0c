#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "EngineCLI/CommandLineFixture.h"
#include "ProtocolMode.h"
#include "Utils/KeloAppProvider.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class ProtocolMode : public test::CommandLineTest {
 protected:
  void expectRefusal(std::vector<std::string> arguments, const std::string& complaint) {
    machine.streams.forgetOutput();
    const auto before = standardError().size();
    EXPECT_EQ(run(std::move(arguments)), 3);
    EXPECT_EQ(transcript(), (Lines{"log error: " + complaint}));
    EXPECT_EQ(standardError().substr(before), "Error: " + complaint + "\n");
    EXPECT_THAT(machine.logLines(), Contains("ERROR engine: " + complaint));
  }
};

constexpr auto kUsage =
    "Usage: engine-cli <hello|run|check-updates|disk-free|export-logs> [flags]\n"
    "       engine-cli --silent --mode install|uninstall --apps brenna,tolvi,rulo,galdivane\n"
    "\n"
    "See protocol/README.md for the full command surface.";

constexpr auto kActionComplaint = "--action must be install, update, or uninstall";
std::string appsComplaint() {
  return "Unknown app identifier in --apps. Valid values: " +
         identifierList(KeloAppProvider::shared().allApps());
}

TEST_F(ProtocolMode, LogsEveryLaunchAFailingOneIncluded) {
  EXPECT_EQ(run({}), 3);
  EXPECT_EQ(machine.logLines(),
            (Lines{"INFO engine-cli launching — Kelo Desk Installer Version 14.5 (Build 23F79)"}));
}

TEST_F(ProtocolMode, PrintsItsUsageWithoutASubcommand) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {}, {"--offline", "hello"}, {"--help"}, {"--verbose"}, {"--SILENT"}, {"--"}}) {
    const auto before = standardError().size();
    EXPECT_EQ(run(arguments), 3);
    EXPECT_EQ(standardError().substr(before), kUsage) << ::testing::PrintToString(arguments);
  }
  EXPECT_THAT(machine.streams.events(), IsEmpty());
}

TEST_F(ProtocolMode, SurvivesAnEmptyArgumentVector) {
  EXPECT_EQ(runEngineCLI({}), 3);
  EXPECT_EQ(standardError(), kUsage);
}

TEST_F(ProtocolMode, RefusesAnUnknownSubcommand) {
  for (const char* subcommand : {"HELLO", "help", "-h", "", "Run", "install"}) {
    expectRefusal({subcommand}, std::string{"Unknown subcommand '"} + subcommand +
                                    "'. Valid: hello, run, check-updates, disk-free, export-logs");
  }
}

TEST_F(ProtocolMode, ChoosesThePackageSourceBeforeItLooksAtTheSubcommand) {
  EXPECT_EQ(run({"frobnicate", "--offline"}), 3);
  EXPECT_THAT(machine.logLines(), Contains("INFO engine-cli: offline mode (--offline flag)"));
}

TEST_F(ProtocolMode, RefusesARunWithoutAKnownAction) {
  expectRefusal({"run"}, kActionComplaint);
  expectRefusal({"run", "--apps", "brenna"}, kActionComplaint);
  expectRefusal({"run", "--action"}, kActionComplaint);
  expectRefusal({"run", "--action", "remove"}, kActionComplaint);
  expectRefusal({"run", "--action=install"}, kActionComplaint);
}

TEST_F(ProtocolMode, LooksAtTheActionBeforeTheAppsAndReportsItAlone) {
  expectRefusal({"run", "--action", "remove", "--apps", "mozi"}, kActionComplaint);
}

TEST_F(ProtocolMode, RefusesARunOfUnknownApps) {
  expectRefusal({"run", "--action", "install", "--apps", "mozi"}, appsComplaint());
  expectRefusal({"run", "--action", "uninstall", "--apps", " "}, appsComplaint());
  expectRefusal({"check-updates", "--apps", "mozi"}, appsComplaint());
}

TEST_F(ProtocolMode, TakesAnExcludedAppForUnknown) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  expectRefusal({"run", "--action", "install", "--apps", "rulo"}, appsComplaint());
  EXPECT_THAT(appsComplaint(), Not(HasSubstr("rulo")));
}

TEST_F(ProtocolMode, NeverListensBeforeTheCommandLineHasProvedValid) {
  machine.streams.feedLine(R"({"type": "cancel"})");
  run({"run", "--action", "install", "--apps", "mozi"});
  run({"hello"});
  run({"disk-free"});
  run({"export-logs"});
  run({"check-updates"});
  EXPECT_THAT(machine.logLines("stdin"), IsEmpty());
  EXPECT_FALSE(machine.signals.hasHandler());
}

// Each subcommand.

TEST_F(ProtocolMode, SaysHello) {
  EXPECT_EQ(run({"hello"}), 0);
  EXPECT_EQ(transcript(), (Lines{"hello", "done hello 0"}));
  EXPECT_EQ(machine.streams.events("hello").at(0)["mode"], "online");
}

TEST_F(ProtocolMode, GoesOfflineOnRequestInAnyCase) {
  EXPECT_EQ(run({"hello", "--OFFLINE"}), 0);
  EXPECT_EQ(machine.streams.events("hello").at(0)["mode"], "offline");
}

TEST_F(ProtocolMode, ChecksForUpdatesOfTheAppsGiven) {
  EXPECT_EQ(run({"check-updates", "--apps", "rulo,Tolvi"}), 0);
  const auto apps = machine.streams.events("update-check-result").at(0)["apps"];
  EXPECT_EQ(apps.at(0)["id"], "rulo");
  EXPECT_EQ(apps.at(1)["id"], "tolvi");
  EXPECT_EQ(apps.size(), 2U);
}

TEST_F(ProtocolMode, MeasuresTheDisk) {
  machine.files.addVolume("/Volumes/Data", 5000);
  EXPECT_EQ(run({"disk-free", "--path", "/Volumes/Data"}), 0);
  EXPECT_EQ(machine.streams.events("disk-free-result").at(0)["freeBytes"], 5000);
}

TEST_F(ProtocolMode, MeasuresTheFolderOfTheAppsByDefault) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"disk-free"}, {"disk-free", "--path"}, {"disk-free", "--path", ""}}) {
    machine.streams.forgetOutput();
    EXPECT_EQ(run(arguments), 0);
    EXPECT_EQ(machine.streams.events("disk-free-result").at(0)["path"], "/Applications");
  }
}

TEST_F(ProtocolMode, ExportsLogs) {
  EXPECT_EQ(run({"export-logs", "--out", "/Out"}), 0);
  EXPECT_THAT(machine.streams.events("export-logs-result").at(0)["path"].get<std::string>(),
              StartsWith("/Out/KeloDeskInstaller-logs-"));
  machine.streams.forgetOutput();
  EXPECT_EQ(run({"export-logs"}), 0);
  EXPECT_THAT(machine.streams.events("export-logs-result").at(0)["path"].get<std::string>(),
              StartsWith("/Users/tester/KeloDeskInstaller-logs-"));
}

TEST_F(ProtocolMode, GivesTheStatusOfTheOperation) {
  machine.programs.on(machine.paths.ditto).exits(1);
  EXPECT_EQ(run({"export-logs"}), 2);
  machine.network.setOffline();
  EXPECT_EQ(run({"run", "--action", "install"}), 5);
}

// The content of the log file at the end of the process, without a wait for the rest.

TEST_F(ProtocolMode, HasWrittenItsLaunchWhenItEndsWithItsUsage) {
  run({});
  EXPECT_THAT(machine.files.read(machine.logFile()), HasSubstr("engine-cli launching"));
}

TEST_F(ProtocolMode, HasWrittenItsComplaintWhenItEnds) {
  run({"frobnicate"});
  EXPECT_THAT(machine.files.read(machine.logFile()), HasSubstr("engine: Unknown subcommand 'frobnicate'"));
}

TEST_F(ProtocolMode, HasWrittenItsLogWhenAnOperationEnds) {
  machine.programs.on(machine.paths.ditto).exits(1);
  run({"export-logs"});
  EXPECT_THAT(machine.files.read(machine.logFile()), HasSubstr("exportLogs failed: ditto exited with 1"));
}

}  // namespace
}  // namespace installer
