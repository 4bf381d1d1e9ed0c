// Whatever a command line says, the process ends in one of its stated ways.
#include <array>
#include <gmock/gmock.h>
#include <random>

#include "AppList.h"
#include "Args.h"
#include "EngineCLI/CommandLineFixture.h"
#include "Utils/RunOptions.h"

namespace installer {
namespace {

class RandomLines {
 public:
  explicit RandomLines(unsigned seed) : random_{seed} {}

  std::vector<std::string> next() {
    std::vector<std::string> tokens(below(8));
    for (auto& token : tokens) token = this->token();
    return tokens;
  }

 private:
  std::mt19937 random_;

  std::size_t below(std::size_t limit) { return random_() % limit; }

  std::string token() {
    static const std::array<std::string, 36> words{"hello",
                                                   "run",
                                                   "check-updates",
                                                   "disk-free",
                                                   "export-logs",
                                                   "--silent",
                                                   "--SILENT",
                                                   "--mode",
                                                   "--apps",
                                                   "--strict",
                                                   "--open-after-install",
                                                   "--verbose",
                                                   "--offline",
                                                   "--action",
                                                   "--path",
                                                   "--out",
                                                   "--install-dir",
                                                   "install",
                                                   "uninstall",
                                                   "update",
                                                   "true",
                                                   "brenna",
                                                   "brenna,tolvi",
                                                   " Rulo ,galdivane",
                                                   ",",
                                                   "",
                                                   "--",
                                                   "-",
                                                   "--apps=brenna",
                                                   "/",
                                                   "/no/such",
                                                   "--frobnicate",
                                                   "TRUE",
                                                   "mozi",
                                                   "--MODE",
                                                   "\t"};
    if (below(8) != 0) return words[below(words.size())];
    std::string noise(below(12), ' ');
    for (auto& byte : noise) byte = static_cast<char>(1 + below(255));
    return noise;
  }
};

class RandomCommandLines : public testing::CommandLineTest {};

TEST_F(RandomCommandLines, AreTakenApartConsistently) {
  RandomLines lines{1};
  for (int round = 0; round < 5000; ++round) {
    const auto tokens = lines.next();
    const Args args{tokens};
    EXPECT_EQ(args.subcommand.has_value(), !tokens.empty() && !tokens.front().starts_with("--"));
    for (const auto& [name, value] : args.values) {
      EXPECT_TRUE(args.has(name));
      EXPECT_FALSE(value.starts_with("--"));
    }
    const auto apps = parseApps(args.value("apps"));
    EXPECT_LE(apps ? apps->size() : 0, args.value("apps").value_or("").size());
  }
}

TEST_F(RandomCommandLines, AreOptionsOrAComplaint) {
  RandomLines lines{2};
  for (int round = 0; round < 5000; ++round) {
    auto tokens = lines.next();
    tokens.insert(tokens.begin(), "engine-cli");
    const auto options = RunOptions::parse(tokens);
    const bool silent = std::ranges::any_of(tokens.begin() + 1, tokens.end(), [](const std::string& token) {
      return token == "--silent" || token == "--SILENT";
    });
    EXPECT_TRUE(silent || !options) << ::testing::PrintToString(tokens);
    EXPECT_TRUE(options || !options.error().description.empty());
  }
}

TEST_F(RandomCommandLines, EndInOneOfTheStatedWays) {
  machine.network.setOffline();
  machine.streams.closeInput();
  run({"hello"});  // the logger tells on standard output that it has made its folder, once
  RandomLines lines{3};
  for (int round = 0; round < 300; ++round) {
    const auto tokens = lines.next();
    machine.streams.forgetOutput();
    const auto status = run(tokens);
    const auto events = machine.streams.events();
    EXPECT_GE(status, 0) << ::testing::PrintToString(tokens);
    EXPECT_LE(status, 5) << ::testing::PrintToString(tokens);
    EXPECT_EQ(events.size(), machine.streams.outputLines().size()) << ::testing::PrintToString(tokens);
    if (events.empty()) continue;  // the silent road, or the usage text
    if (events.back()["type"] == "done") {
      EXPECT_EQ(events.back()["exitCode"], status);
    } else {
      EXPECT_EQ(status, 3);
      EXPECT_EQ(events.back()["level"], "error");
    }
  }
}

}  // namespace
}  // namespace installer
