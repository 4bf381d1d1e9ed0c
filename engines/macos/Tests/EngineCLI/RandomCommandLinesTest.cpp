// Whatever a command line says, the process ends in one of its stated ways.
#include <array>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <set>

#include "Args.h"
#include "EngineCLI/CommandLineFixture.h"
#include "Utils/AppList.h"
#include "Utils/Logger.h"
#include "Utils/RunOptions.h"

namespace installer {
namespace {

class RandomLines {
 public:
  explicit RandomLines(unsigned seed) : random_{seed} {}

  // Every other line is nearly one that somebody would type.
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

using Tokens = std::vector<std::string>;

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  return text;
}

// The words that the random lines hold and that a list of apps may be. Noise is none of them.
bool isListOfApps(const std::string& value) {
  const std::set<std::string> lists{"brenna", "brenna,tolvi", " Rulo ,galdivane", ",", ""};
  return lists.contains(value);
}

// The grammar of unattended runs once more, as a machine that waits for a value or for a flag.
bool isSilentLine(const Tokens& tokens) {
  std::string awaited;
  bool sawSilent = false;
  for (const auto& token : tokens) {
    if (awaited == "--mode" && lower(token) != "install" && lower(token) != "uninstall") return false;
    if (awaited == "--apps" && !isListOfApps(token)) return false;
    const std::set<std::string> flags{"--mode", "--apps", "--strict", "--open-after-install"};
    const auto flag = lower(token);
    sawSilent = sawSilent || (awaited.empty() && flag == "--silent");
    awaited = awaited.empty() && flags.contains(flag) ? flag : "";
  }
  return sawSilent && awaited.empty();
}

// What an option of the other mode is worth: each one's last value that isn't an option itself.
std::optional<std::string> optionIn(const Tokens& tokens, const std::string& name) {
  std::optional<std::string> value;
  for (std::size_t i = 0; i + 1 < tokens.size(); ++i) {
    if (lower(tokens[i]) == "--" + name && !tokens[i + 1].starts_with("--")) value = tokens[i + 1];
  }
  return value;
}

enum class End { usage, refused, done, silentRefused, silentDone };

End endOf(const Tokens& tokens) {
  if (std::ranges::count(tokens, "--silent") > 0) {
    return isSilentLine(tokens) ? End::silentDone : End::silentRefused;
  }
  if (tokens.empty() || tokens.front().starts_with("--")) return End::usage;
  const std::set<std::string> plain{"hello", "disk-free", "export-logs"};
  if (plain.contains(tokens.front())) return End::done;
  const std::set<std::string> actions{"install", "update", "uninstall"};
  const bool isRun =
      tokens.front() == "run" && actions.contains(lower(optionIn(tokens, "action").value_or("")));
  if (!isRun && tokens.front() != "check-updates") return End::refused;
  return isListOfApps(optionIn(tokens, "apps").value_or("")) ? End::done : End::refused;
}

class RandomCommandLines : public test::CommandLineTest {
 protected:
  // How the run that has just ended with `status` looks from outside; nothing when it looks like no stated
  // end.
  std::optional<End> endSeen(std::int32_t status) const {
    const auto events = machine.streams.events();
    const auto told = machine.streams.error();
    if (events.empty() && status != 3)
      return status >= 0 && status <= 5 ? std::optional{End::silentDone} : std::nullopt;
    if (events.empty() && told.starts_with("Usage: engine-cli <hello|")) return End::usage;
    if (events.empty() && told.contains(std::string{RunOptions::usageHint} + "\n")) return End::silentRefused;
    if (events.empty()) return std::nullopt;
    const auto& last = events.back();
    if (last["type"] == "done" && last["exitCode"] == status && status != 3) return End::done;
    const bool isRefusal = status == 3 && last["level"] == "error" && told.starts_with("Error: ");
    return isRefusal ? std::optional{End::refused} : std::nullopt;
  }
};

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
    EXPECT_EQ(options.has_value(), isSilentLine({tokens.begin() + 1, tokens.end()}))
        << ::testing::PrintToString(tokens);
    EXPECT_TRUE(options || !options.error().description.empty());
  }
}

TEST_F(RandomCommandLines, EndInOneOfTheStatedWays) {
  machine.network.setOffline();
  machine.streams.closeInput();
  run({"hello"});  // the logger tells on standard output that it has made its folder, once
  RandomLines lines{3};
  std::map<End, int> met;
  for (int round = 0; round < 600; ++round) {
    const auto tokens = lines.next();
    machine.streams.forgetOutput();
    Logger::shared().setEchoToStandardError(false);  // each line is a process of its own
    const auto status = run(tokens);
    SCOPED_TRACE(::testing::PrintToString(tokens));
    EXPECT_EQ(machine.streams.events().size(), machine.streams.outputLines().size());
    const auto end = endOf(tokens);
    EXPECT_EQ(endSeen(status), end) << status;
    ++met[end];
  }
  EXPECT_EQ(met.size(), 5U) << "every end was met";
}

}  // namespace
}  // namespace installer
