// For every command line, the process ends in one of the specified ways.
#include <array>
#include <gmock/gmock.h>
#include <map>
#include <random>

#include "Args.h"
#include "EngineCLI/CommandLineFixture.h"
#include "EngineCLI/CommandLineModel.h"
#include "Utils/AppList.h"
#include "Utils/Logger.h"
#include "Utils/RunOptions.h"

namespace installer {
namespace {

class RandomLines {
 public:
  explicit RandomLines(unsigned seed) : random_{seed} {}

  // Every second line is almost a valid one.
  std::vector<std::string> next() {
    if (below(2) == 0) return likely();
    std::vector<std::string> tokens(below(8));
    for (auto& token : tokens) token = this->token();
    return tokens;
  }

 private:
  std::mt19937 random_;

  std::size_t below(std::size_t limit) { return random_() % limit; }

  std::vector<std::string> likely() {
    static const std::array<std::string, 3> beginnings{"run", "check-updates", "--silent"};
    static const std::array<std::string, 5> options{"--action", "--apps", "--mode", "--strict", "--APPS"};
    static const std::array<std::string, 9> values{
        "install", "uninstall", "update", "brenna", "brenna,tolvi", "mozi", ",", "TRUE", "--offline"};
    std::vector<std::string> tokens{beginnings[below(beginnings.size())], "--action", values[below(3)]};
    for (auto pairs = below(3); pairs > 0; --pairs) {
      tokens.push_back(options[below(options.size())]);
      tokens.push_back(values[below(values.size())]);
    }
    return tokens;
  }

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

using test::End;
using RandomCommandLines = test::CommandLineTest;

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
    const auto apps = parseApps(args.value("apps").value_or(""));
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
    EXPECT_EQ(options.has_value(), test::silentLine({tokens.begin() + 1, tokens.end()}).has_value())
        << ::testing::PrintToString(tokens);
    EXPECT_TRUE(options || !options.error().description.empty());
  }
}

TEST_F(RandomCommandLines, EndInOneOfTheStatedWays) {
  machine.network.setOffline();
  machine.streams.closeInput();
  run({"hello"});  // the logger reports its new folder once, on standard output
  RandomLines lines{3};
  std::map<End, int> met;
  for (int round = 0; round < 600; ++round) {
    const auto tokens = lines.next();
    machine.streams.forgetOutput();
    Logger::shared().setEchoToStandardError(false);  // each line is a separate process
    const auto status = run(tokens);
    SCOPED_TRACE(::testing::PrintToString(tokens));
    EXPECT_EQ(machine.streams.events().size(), machine.streams.outputLines().size());
    const auto end = test::endOf(tokens);
    EXPECT_EQ(endSeen(machine.streams, status), end) << status;
    ++met[end];
  }
  EXPECT_EQ(met.size(), 5U) << "every end was met";
}

}  // namespace
}  // namespace installer
