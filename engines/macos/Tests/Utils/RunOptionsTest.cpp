#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Support/SimulatedMachine.h"
#include "Utils/KeloAppProvider.h"
#include "Utils/RunOptions.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RunOptionsParse : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;

  static auto parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "engine-cli");
    return RunOptions::parse(arguments);
  }
  static std::string failureOf(std::vector<std::string> arguments) {
    const auto options = parse(std::move(arguments));
    return options ? "no failure" : options.error().description;
  }
  static std::string unknownApp(const std::string& name) {
    return fmt::format("Unknown app identifier '{}'. Valid values: {}", name,
                       identifierList(KeloAppProvider::shared().allApps()));
  }
};

TEST_F(RunOptionsParse, StartsFromTheDefaults) {
  const auto options = parse({"--silent"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->action, InstallerAction::install);
  EXPECT_THAT(options->selectedApps, IsEmpty());
  EXPECT_FALSE(options->openAfterInstall);
  EXPECT_FALSE(options->strict);
}

TEST_F(RunOptionsParse, TakesEveryFlagInAnyCase) {
  const auto options = parse({"--SILENT", "--Mode", "UnInstall", "--APPS", "rulo", "--open-After-install",
                              "TRUE", "--Strict", "True"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->action, InstallerAction::uninstall);
  EXPECT_THAT(options->selectedApps, ElementsAre(AppIdentifier::rulo));
  EXPECT_TRUE(options->openAfterInstall);
  EXPECT_TRUE(options->strict);
}

TEST_F(RunOptionsParse, RefusesALineWithoutArguments) {
  EXPECT_EQ(failureOf({}), "No arguments supplied");
  EXPECT_EQ(RunOptions::parse({}).error().description, "No arguments supplied");
}

TEST_F(RunOptionsParse, TellsWhatIsWrong) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
      {{"--silent", "--mode"}, "--mode requires a value: install | uninstall"},
      {{"--silent", "--apps"},
       "--apps requires a value: comma-separated list (e.g. brenna,tolvi,rulo,galdivane)"},
      {{"--silent", "--open-after-install"}, "--open-after-install requires a value: true | false"},
      {{"--silent", "--strict"}, "--strict requires a value: true | false"},
      {{"--silent", "--mode", "Upgrade"}, "Unknown --mode value 'Upgrade'. Valid values: install, uninstall"},
      {{"--silent", "--mode", "update"}, "Unknown --mode value 'update'. Valid values: install, uninstall"},
      {{"--silent", "--mode", " install"},
       "Unknown --mode value ' install'. Valid values: install, uninstall"},
      {{"--silent", "--apps", "brenna, MOZI"}, unknownApp("mozi")},
      {{"--silent", "--apps", "brenna\n"}, unknownApp("brenna\n")},
      {{"--silent", "--apps", "brenna, ,tolvi"}, unknownApp("")},
      {{"--silent", "--apps", "--strict", "true"}, unknownApp("--strict")},
      {{"--mode", "install"}, "RunOptions is the --silent argument model; --silent is required"},
      {{"silent"}, "RunOptions is the --silent argument model; --silent is required"},
  };
  for (const auto& [arguments, message] : rows) {
    EXPECT_EQ(failureOf(arguments), message) << ::testing::PrintToString(arguments);
  }
}

TEST_F(RunOptionsParse, StopsAtTheFirstFailureInTheOrderOfArguments) {
  EXPECT_EQ(failureOf({"--mode", "x"}), "Unknown --mode value 'x'. Valid values: install, uninstall");
  EXPECT_EQ(failureOf({"--silent", "--apps", "y", "--mode", "x"}), unknownApp("y"));
  EXPECT_EQ(failureOf({"--silent", "--mode", "x", "--apps", "y"}),
            "Unknown --mode value 'x'. Valid values: install, uninstall");
}

TEST_F(RunOptionsParse, TrimsAndLowercasesAppsInTheOrderGiven) {
  EXPECT_THAT(parse({"--silent", "--apps", "Brenna, TOLVI,"})->selectedApps,
              ElementsAre(AppIdentifier::brenna, AppIdentifier::tolvi));
  EXPECT_THAT(parse({"--silent", "--apps", "galdivane,\trulo\u00A0,,brenna"})->selectedApps,
              ElementsAre(AppIdentifier::galdivane, AppIdentifier::rulo, AppIdentifier::brenna));
}

TEST_F(RunOptionsParse, AddsRepeatedAppsAndKeepsDuplicates) {
  EXPECT_THAT(parse({"--silent", "--apps", "brenna", "--apps", "brenna"})->selectedApps,
              ElementsAre(AppIdentifier::brenna, AppIdentifier::brenna));
}

TEST_F(RunOptionsParse, AddsNothingForAListWithoutPieces) {
  for (const char* value : {",", ",,,", ""}) {
    const auto options = parse({"--silent", "--apps", value});
    ASSERT_TRUE(options) << value;
    EXPECT_THAT(options->selectedApps, IsEmpty()) << value;
  }
}

TEST_F(RunOptionsParse, RefusesAnAppThatThisBuildExcludes) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  EXPECT_EQ(failureOf({"--silent", "--apps", "rulo"}),
            "Unknown app identifier 'rulo'. Valid values: brenna, tolvi, galdivane");
}

TEST_F(RunOptionsParse, TakesAnyOtherWordThanTrueForFalse) {
  for (const char* word : {"false", "yes", "1", "on", "", " true", "--apps"}) {
    const auto options = parse({"--silent", "--strict", word, "--open-after-install", word});
    ASSERT_TRUE(options) << word;
    EXPECT_FALSE(options->strict) << word;
    EXPECT_FALSE(options->openAfterInstall) << word;
  }
}

TEST_F(RunOptionsParse, LetsTheLastWordOfARepeatedFlagStand) {
  const auto options =
      parse({"--silent", "--mode", "uninstall", "--strict", "true", "--strict", "no", "--mode", "install"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->action, InstallerAction::install);
  EXPECT_FALSE(options->strict);
}

TEST_F(RunOptionsParse, LogsAndSkipsWhatItDoesNotKnow) {
  ASSERT_TRUE(parse({"--silent", "--frobnicate", "--Verbose", "stray", "--strict=true"}));
  EXPECT_EQ(machine.logLines("RunOptions"),
            (Lines{"INFO RunOptions: Ignoring unrecognised argument '--frobnicate'",
                   "INFO RunOptions: Ignoring unrecognised argument '--Verbose'",
                   "INFO RunOptions: Ignoring unrecognised argument 'stray'",
                   "INFO RunOptions: Ignoring unrecognised argument '--strict=true'"}));
  EXPECT_TRUE(machine.streams.events().empty());
  EXPECT_TRUE(machine.streams.error().empty());
}

TEST(RunOptionsUsage, IsSeventeenLinesWithoutAFinalLineFeed) {
  const auto lines = test::linesOf(RunOptions::usageHint);
  EXPECT_EQ(
      lines,
      (Lines{"Usage: <installer> [--silent] [--mode install|uninstall] [--apps "
             "brenna,tolvi,rulo,galdivane] [--open-after-install true|false] [--strict true|false] "
             "[--verbose]",
             "", "Flags:", "  --silent                     Run without UI; exit with a deterministic code",
             "  --mode install|uninstall     Operation to perform (default: install)",
             "  --apps brenna,tolvi,rulo,galdivane Apps to act on (default: all four)",
             "  --open-after-install true    Launch installed apps after silent install (default: false)",
             "  --strict true                Any per-app failure fails the entire run (default: false)",
             "  --verbose                    Echo progress to the terminal (stderr); default off", "",
             "Exit codes:", "  0  Success",
             "  1  Partial success (non-strict mode: some apps failed, some succeeded)",
             "  2  Full failure (all apps failed)", "  3  Invalid arguments", "  4  Permission denied",
             "  5  Network unavailable (online mode only)"}));
  EXPECT_NE(RunOptions::usageHint.back(), '\n');
}

}  // namespace
}  // namespace installer
