// Whole runs, from the command line.
#include <algorithm>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "EngineCLI/CommandLineFixture.h"

namespace installer {
namespace {

using namespace std::chrono_literals;
using enum AppIdentifier;
using test::Lines;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class ProtocolRun : public test::CommandLineTest {};

TEST_F(ProtocolRun, InstallsFromThePackagesBesideIt) {
  addBesideInstaller(brenna, "2.0");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
  EXPECT_EQ(transcript().back(), "done install 0: brenna installed /Applications/Brenna.app 2.0");
}

TEST_F(ProtocolRun, TakesTheActionInAnyCaseAndReportsItInLowerCase) {
  addBesideInstaller(brenna, "2.0");
  EXPECT_EQ(run({"run", "--ACTION", "UPDATE", "--apps", "brenna"}), 0);
  EXPECT_EQ(transcript().back(), "done update 0: brenna updated /Applications/Brenna.app 2.0");
}

TEST_F(ProtocolRun, InstallsAllAppsForAListWithoutPieces) {
  addBesideInstaller(rulo, "2.0");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", ","}), 1);
  EXPECT_EQ(machine.streams.events("done").at(0)["results"].size(), AppIdentifiers::allCases.size());
}

TEST_F(ProtocolRun, Uninstalls) {
  addInstalled(brenna, "1.0");
  EXPECT_EQ(run({"run", "--action", "uninstall", "--apps", "brenna"}), 0);
  EXPECT_EQ(transcript().back(), "done uninstall 0: brenna uninstalled");
}

TEST_F(ProtocolRun, RemovesEveryAppForAnUninstallWithoutApps) {
  addInstalled(brenna, "1.0");
  addInstalled(galdivane, "1.0");
  EXPECT_EQ(run({"run", "--action", "uninstall"}), 0);
  EXPECT_THAT(machine.files.tree("/Applications"), IsEmpty());
}

TEST_F(ProtocolRun, IsStrictOnlyForTheWordTrue) {
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

TEST_F(ProtocolRun, WarnsThatTheInstallFolderCantBeChosen) {
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

// A run that downloads its packages.

class OnlineRun : public ProtocolRun {
 protected:
  OnlineRun() {
    configureCDN();
    offer(brenna, "arm64", "2.0");
    offer(tolvi, "universal", "3.0");
  }

  // The transcript without the events during a download.
  Lines milestones() const {
    auto lines = transcript();
    std::erase_if(lines, [](const std::string& line) {
      const bool toldByTheRun = line.ends_with("successfully") || line.starts_with("log info: Verifying") ||
                                line.starts_with("log info: Installing");
      const bool hasByteCounts = line.find(" of ") != std::string::npos;
      return hasByteCounts || (line.starts_with("log info:") && !toldByTheRun);
    });
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
  }
};

TEST_F(OnlineRun, IsToldInOrder) {
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna,tolvi", "--install-dir", "/x"}), 0);
  EXPECT_EQ(milestones(),
            (Lines{"log warn: --install-dir is not yet honored (Phase 1); installing to /Applications",
                   "stage brenna download 1/2",
                   "progress brenna 0% DOWNLOADING",
                   "log info: Verifying Kelo Brenna (1/2)...",
                   "stage brenna verify 1/2",
                   "progress brenna ~85% VERIFYING",
                   "log info: Installing Kelo Brenna (1/2)...",
                   "stage brenna install 1/2",
                   "progress brenna ~95% INSTALLING",
                   "log info: Kelo Brenna installed successfully",
                   "app-result brenna installed /Applications/Brenna.app 2.0",
                   "stage tolvi download 2/2",
                   "progress tolvi 0% DOWNLOADING",
                   "log info: Verifying Kelo Tolvi (2/2)...",
                   "stage tolvi verify 2/2",
                   "progress tolvi ~85% VERIFYING",
                   "log info: Installing Kelo Tolvi (2/2)...",
                   "stage tolvi install 2/2",
                   "progress tolvi ~95% INSTALLING",
                   "log info: Kelo Tolvi installed successfully",
                   "app-result tolvi installed /Applications/Kelo Tolvi.app 3.0",
                   "done install 0: brenna installed /Applications/Brenna.app 2.0, "
                   "tolvi installed /Applications/Kelo Tolvi.app 3.0"}));
}

TEST_F(OnlineRun, FollowsEachStatusOfItsDownloadWithTheAppsProgress) {
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
  const auto lines = transcript();
  int statuses = 0;
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    if (!lines[i].starts_with("log info: Downloading")) continue;
    ++statuses;
    EXPECT_THAT(lines[i + 1], StartsWith("progress brenna ")) << lines[i];
  }
  EXPECT_GT(statuses, 1);
}

// Cancels by standard input and by signals.

TEST_F(ProtocolRun, HearsACancelOnStandardInput) {
  addBesideInstaller(brenna, "2.0");
  addBesideInstaller(tolvi, "2.0");
  machine.programs.on(machine.paths.codesign).takes(10s);
  machine.streams.feedLineAt(5s, R"({"type": "cancel"})");
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna,tolvi"}), 1);
  EXPECT_EQ(transcript().back(),
            "done install 1: brenna installed /Applications/Brenna.app 2.0, tolvi cancelled");
}

TEST_F(ProtocolRun, FinishesOnItsOwnWhenStandardInputEnds) {
  addBesideInstaller(brenna, "2.0");
  machine.streams.closeInput();
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
}

TEST_F(ProtocolRun, EndsTheAppAtWorkWholeUponATerminationRequest) {
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

TEST_F(ProtocolRun, GoesOnWhenItsShellHasDied) {
  addBesideInstaller(brenna, "2.0");
  machine.streams.readerGoesAway();
  machine.streams.closeInput();
  EXPECT_EQ(run({"run", "--action", "install", "--apps", "brenna"}), 0);
  EXPECT_TRUE(machine.files.exists("/Applications/Brenna.app"));
}

}  // namespace
}  // namespace installer
