#include <algorithm>
#include <fmt/format.h>
#include <gmock/gmock.h>

#include "EngineCLI/CommandLineFixture.h"
#include "ProtocolRoad.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::Lines;
using ::testing::Not;
using ::testing::StartsWith;

class ProtocolRoad : public testing::CommandLineTest {
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
constexpr auto kAppsComplaint =
    "Unknown app identifier in --apps. Valid values: brenna, tolvi, rulo, galdivane";

TEST_F(ProtocolRoad, LogsEveryLaunchAFailingOneIncluded) {
  EXPECT_EQ(run({}), 3);
  EXPECT_EQ(machine.logLines(),
            (Lines{"INFO engine-cli launching — Kelo Desk Installer Version 14.5 (Build 23F79)"}));
}

TEST_F(ProtocolRoad, PrintsItsUsageWithoutASubcommand) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {}, {"--offline", "hello"}, {"--help"}, {"--verbose"}, {"--SILENT"}, {"--"}}) {
    const auto before = standardError().size();
    EXPECT_EQ(run(arguments), 3);
    EXPECT_EQ(standardError().substr(before), kUsage) << ::testing::PrintToString(arguments);
  }
  EXPECT_THAT(machine.streams.events(), IsEmpty());
}

TEST_F(ProtocolRoad, SurvivesAnEmptyArgumentVector) {
  EXPECT_EQ(runEngineCLI({}), 3);
  EXPECT_EQ(standardError(), kUsage);
}

TEST_F(ProtocolRoad, RefusesAnUnknownSubcommand) {
  for (const char* subcommand : {"HELLO", "help", "-h", "", "Run", "install"}) {
    expectRefusal({subcommand}, std::string{"Unknown subcommand '"} + subcommand +
                                    "'. Valid: hello, run, check-updates, disk-free, export-logs");
  }
}

TEST_F(ProtocolRoad, ChoosesThePackageSourceBeforeItLooksAtTheSubcommand) {
  EXPECT_EQ(run({"frobnicate", "--offline"}), 3);
  EXPECT_THAT(machine.logLines(), Contains("INFO engine-cli: offline mode (--offline flag)"));
}

TEST_F(ProtocolRoad, RefusesARunWithoutAKnownAction) {
  expectRefusal({"run"}, kActionComplaint);
  expectRefusal({"run", "--apps", "brenna"}, kActionComplaint);
  expectRefusal({"run", "--action"}, kActionComplaint);
  expectRefusal({"run", "--action", "remove"}, kActionComplaint);
  expectRefusal({"run", "--action=install"}, kActionComplaint);
  expectRefusal({"run", "--action", "remove", "--apps", "mozi"}, kActionComplaint);
}

TEST_F(ProtocolRoad, RefusesARunOfUnknownApps) {
  expectRefusal({"run", "--action", "install", "--apps", "mozi"}, kAppsComplaint);
  expectRefusal({"run", "--action", "uninstall", "--apps", " "}, kAppsComplaint);
  expectRefusal({"check-updates", "--apps", "mozi"}, kAppsComplaint);
}

TEST_F(ProtocolRoad, TakesAnExcludedAppForUnknown) {
  machine.setConfiguration(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": false}}})");
  expectRefusal({"run", "--action", "install", "--apps", "rulo"},
                "Unknown app identifier in --apps. Valid values: brenna, tolvi, galdivane");
}

TEST_F(ProtocolRoad, NeverListensBeforeTheCommandLineHasProvedValid) {
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

TEST_F(ProtocolRoad, SaysHello) {
  EXPECT_EQ(run({"hello"}), 0);
  EXPECT_EQ(transcript(), (Lines{"hello", "done hello 0"}));
  EXPECT_EQ(machine.streams.events("hello").at(0)["mode"], "online");
}

TEST_F(ProtocolRoad, GoesOfflineOnRequestInAnyCase) {
  EXPECT_EQ(run({"hello", "--OFFLINE"}), 0);
  EXPECT_EQ(machine.streams.events("hello").at(0)["mode"], "offline");
}

TEST_F(ProtocolRoad, ChecksForUpdatesOfTheAppsGiven) {
  EXPECT_EQ(run({"check-updates", "--apps", "rulo,Tolvi"}), 0);
  const auto apps = machine.streams.events("update-check-result").at(0)["apps"];
  EXPECT_EQ(apps.at(0)["id"], "rulo");
  EXPECT_EQ(apps.at(1)["id"], "tolvi");
  EXPECT_EQ(apps.size(), 2U);
}

TEST_F(ProtocolRoad, MeasuresTheDisk) {
  machine.files.addVolume("/Volumes/Data", 5000);
  EXPECT_EQ(run({"disk-free", "--path", "/Volumes/Data"}), 0);
  EXPECT_EQ(machine.streams.events("disk-free-result").at(0)["freeBytes"], 5000);
}

TEST_F(ProtocolRoad, MeasuresTheFolderOfTheAppsByDefault) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {"disk-free"}, {"disk-free", "--path"}, {"disk-free", "--path", ""}}) {
    machine.streams.forgetOutput();
    EXPECT_EQ(run(arguments), 0);
    EXPECT_EQ(machine.streams.events("disk-free-result").at(0)["path"], "/Applications");
  }
}

TEST_F(ProtocolRoad, ExportsLogs) {
  EXPECT_EQ(run({"export-logs", "--out", "/Out"}), 0);
  EXPECT_THAT(machine.streams.events("export-logs-result").at(0)["path"].get<std::string>(),
              StartsWith("/Out/KeloDeskInstaller-logs-"));
  machine.streams.forgetOutput();
  EXPECT_EQ(run({"export-logs"}), 0);
  EXPECT_THAT(machine.streams.events("export-logs-result").at(0)["path"].get<std::string>(),
              StartsWith("/Users/tester/KeloDeskInstaller-logs-"));
}

TEST_F(ProtocolRoad, GivesTheStatusOfTheOperation) {
  machine.programs.on(machine.paths.ditto).exits(1);
  EXPECT_EQ(run({"export-logs"}), 2);
  machine.network.setOffline();
  EXPECT_EQ(run({"run", "--action", "install"}), 5);
}

TEST_F(ProtocolRoad, InstallsFromThePackagesBesideIt) {
  addBesideInstaller(brenna, "2.0");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
  EXPECT_EQ(transcript().back(), "done install 0: brenna installed /Applications/Brenna.app 2.0");
}

TEST_F(ProtocolRoad, TakesTheActionInAnyCaseAndReportsItInLowerCase) {
  addBesideInstaller(brenna, "2.0");
  EXPECT_EQ(run({"run", "--ACTION", "UPDATE", "--apps", "brenna"}), 0);
  EXPECT_EQ(transcript().back(), "done update 0: brenna updated /Applications/Brenna.app 2.0");
}

TEST_F(ProtocolRoad, InstallsAllAppsForAListWithoutPieces) {
  addBesideInstaller(rulo, "2.0");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", ","}), 1);
  EXPECT_EQ(machine.streams.events("done").at(0)["results"].size(), 4U);
}

TEST_F(ProtocolRoad, Uninstalls) {
  addInstalled(brenna, "1.0");
  EXPECT_EQ(run({"run", "--action", "uninstall", "--apps", "brenna"}), 0);
  EXPECT_EQ(transcript().back(), "done uninstall 0: brenna uninstalled");
}

TEST_F(ProtocolRoad, RemovesEveryAppForAnUninstallWithoutApps) {
  addInstalled(brenna, "1.0");
  addInstalled(galdivane, "1.0");
  EXPECT_EQ(run({"run", "--action", "uninstall"}), 0);
  EXPECT_THAT(machine.files.tree("/Applications"), IsEmpty());
}

TEST_F(ProtocolRoad, IsStrictOnlyForTheWordTrue) {
  const std::vector<std::pair<std::vector<std::string>, std::int32_t>> rows{
      {{"--strict", "true"}, 2}, {{"--strict", "TRUE"}, 2}, {{"--strict"}, 1},
      {{"--strict", "yes"}, 1},  {{"--strict=true"}, 1},    {{}, 1},
  };
  addBesideInstaller(brenna, "2.0");
  for (const auto& [flags, status] : rows) {
    std::vector<std::string> arguments{"run", "--action", "install", "--apps", "brenna,tolvi"};
    arguments.insert(arguments.end(), flags.begin(), flags.end());
    EXPECT_EQ(run(arguments), status) << ::testing::PrintToString(flags);
  }
}

TEST_F(ProtocolRoad, WarnsThatTheInstallFolderCantBeChosen) {
  addBesideInstaller(brenna, "2.0");
  for (const auto& flags :
       std::vector<std::vector<std::string>>{{"--install-dir", "/tmp/x"}, {"--install-dir"}}) {
    machine.streams.forgetOutput();
    machine.files.erase("/Applications/Brenna.app");
    std::vector<std::string> arguments{"run", "--action", "install", "--apps", "brenna"};
    arguments.insert(arguments.end(), flags.begin(), flags.end());
    EXPECT_EQ(run(arguments), 0);
    EXPECT_EQ(transcript().front(),
              "log warn: --install-dir is not yet honored (Phase 1); installing to /Applications");
    EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app"));
    EXPECT_FALSE(machine.files.exists("/tmp/x"));
  }
}

TEST_F(ProtocolRoad, TellsAWholeOnlineRunInOrder) {
  machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["cdn.test"],
                               "cdn": {"domains": {"us": "https://cdn.test"}}})");
  const auto offer = [this](AppIdentifier identifier, const std::string& arch, const std::string& version) {
    const auto bytes = image(identifier, version);
    auto digest = machine.digest.startSHA256();
    digest->update(bytes);
    std::string checksum;
    for (const auto byte : digest->finish()) checksum += fmt::format("{:02x}", byte);
    const auto folder = "https://cdn.test/desksuite/apps/default/" + std::string{rawValue(identifier)} +
                        "/mac/" + arch + "/dmg/latest/";
    machine.network.on(folder + "meta.json")
        .answers(200, R"({"version": ")" + version + R"(", "destination": "p.dmg", "checksum": ")" +
                          checksum + R"("})");
    machine.network.on(folder + "p.dmg").answers(200, bytes).inPieces(600, 2s);
  };
  offer(brenna, "arm64", "2.0");
  offer(tolvi, "universal", "3.0");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna,tolvi", "--install-dir", "/x"}), 0);

  // Of what the provider tells, only that each status is followed by its progress.
  auto lines = transcript();
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    if (lines[i].starts_with("log info: Downloading")) {
      EXPECT_THAT(lines[i + 1], StartsWith("progress ")) << lines[i];
    }
  }
  std::erase_if(lines, [](const std::string& line) {
    return (line.starts_with("log info:") && !line.ends_with("successfully") &&
            !line.starts_with("log info: Verifying") && !line.starts_with("log info: Installing")) ||
           line.find(" of ") != std::string::npos;
  });
  lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
  const auto expected = [](const std::string& id, const std::string& name, const std::string& number,
                           const std::string& result) {
    return Lines{"stage " + id + " download " + number + "/2",
                 "progress " + id + " 0% DOWNLOADING",
                 "log info: Verifying " + name + " (" + number + "/2)...",
                 "stage " + id + " verify " + number + "/2",
                 "progress " + id + " ~85% VERIFYING",
                 "log info: Installing " + name + " (" + number + "/2)...",
                 "stage " + id + " install " + number + "/2",
                 "progress " + id + " ~95% INSTALLING",
                 "log info: " + name + " installed successfully",
                 "app-result " + result};
  };
  Lines all{"log warn: --install-dir is not yet honored (Phase 1); installing to /Applications"};
  for (const auto& part :
       {expected("brenna", "Kelo Brenna", "1", "brenna installed /Applications/Brenna.app 2.0"),
        expected("tolvi", "Kelo Tolvi", "2", "tolvi installed /Applications/Kelo Tolvi.app 3.0")}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  all.emplace_back(
      "done install 0: brenna installed /Applications/Brenna.app 2.0, "
      "tolvi installed /Applications/Kelo Tolvi.app 3.0");
  EXPECT_EQ(lines, all);
}

// Cancels from outside.

TEST_F(ProtocolRoad, HearsACancelOnStandardInput) {
  addBesideInstaller(brenna, "2.0");
  addBesideInstaller(tolvi, "2.0");
  machine.programs.on(machine.paths.codesign).takes(10s);
  machine.streams.feedLineAt(5s, R"({"type": "cancel"})");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna,tolvi"}), 1);
  EXPECT_EQ(transcript().back(),
            "done install 1: brenna installed /Applications/Brenna.app 2.0, tolvi cancelled");
}

TEST_F(ProtocolRoad, FinishesOnItsOwnWhenStandardInputEnds) {
  addBesideInstaller(brenna, "2.0");
  machine.streams.closeInput();
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
}

TEST_F(ProtocolRoad, EndsTheAppAtWorkWholeUponATerminationRequest) {
  addBesideInstaller(brenna, "2.0");
  addBesideInstaller(tolvi, "2.0");
  machine.programs.on(machine.paths.codesign).takes(10s);
  machine.signals.requestTerminationAt(5s);
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna,tolvi"}), 1);
  EXPECT_EQ(transcript().back(),
            "done install 1: brenna installed /Applications/Brenna.app 2.0, tolvi cancelled");
  EXPECT_FALSE(machine.signals.endedAtOnce());
  EXPECT_THAT(machine.images.attached(), IsEmpty());
  EXPECT_EQ(machine.logLines("termination requested"),
            (Lines{"INFO engine-cli: termination requested, cancelling the whole run"}));
}

TEST_F(ProtocolRoad, GoesOnWhenItsShellHasDied) {
  addBesideInstaller(brenna, "2.0");
  machine.streams.readerGoesAway();
  machine.streams.closeInput();
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
  EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app"));
}

TEST_F(ProtocolRoad, HasWrittenItsLogWhenItEnds) {
  run({"frobnicate"});
  EXPECT_THAT(machine.files.read(machine.logFile()), HasSubstr("engine: Unknown subcommand 'frobnicate'"));
}

}  // namespace
}  // namespace installer
