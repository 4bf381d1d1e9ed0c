#include "Support/SimulatedAdministrator.h"

#include <array>
#include <nlohmann/json.hpp>
#include <utility>

namespace installer::test {

namespace {

ScriptErrorDictionary errorNumber(int number, const std::string& message) {
  return Json{{AdministratorScript::kErrorNumberKey, number}, {"NSAppleScriptErrorMessage", message}};
}

// The command inside `do shell script "..." with administrator privileges`, unescaped.
std::string commandOfSource(const std::string& source) {
  std::string command;
  const auto start = source.find('"');
  for (auto at = start + 1; start != std::string::npos && at < source.size() && source[at] != '"'; ++at) {
    if (source[at] == '\\' && at + 1 < source.size()) ++at;
    command += source[at];
  }
  return command;
}

}  // namespace

std::vector<std::string> shellWords(const std::string& commandLine) {
  std::vector<std::string> words;
  std::optional<std::string> word;
  char quote = 0;
  for (std::size_t at = 0; at < commandLine.size(); ++at) {
    const char character = commandLine[at];
    if (quote == 0 && character == ' ') {
      if (word) words.push_back(*std::exchange(word, std::nullopt));
      continue;
    }
    if (!word) word.emplace();
    if (character == quote) {
      quote = 0;
    } else if (quote == 0 && (character == '\'' || character == '"')) {
      quote = character;
    } else if (character == '\\' && quote != '\'' && at + 1 < commandLine.size()) {
      *word += commandLine[++at];
    } else {
      *word += character;
    }
  }
  if (word) words.push_back(*word);
  return words;
}

class SimulatedScript : public AdministratorScript {
 public:
  SimulatedScript(SimulatedAdministrator& administrator, std::string source)
      : administrator_{administrator}, source_{std::move(source)} {}

  Expected<ScriptErrorDictionary, EventFailure> callHandler(const std::string& name,
                                                            const std::string& argument) override {
    if (administrator_.noTarget_ || administrator_.plan_.answersNo("isReachable", name)) {
      return std::unexpected(EventFailure::noTarget);
    }
    administrator_.handlers_.push_back(name);
    if (source_.find("on " + name + "(") == std::string::npos) {
      constexpr int kNoSuchHandler = -1708;
      return errorNumber(kNoSuchHandler, "The script has no such handler.");
    }
    return administrator_.perform(argument);
  }

  ScriptErrorDictionary execute() override { return administrator_.perform(commandOfSource(source_)); }

 private:
  SimulatedAdministrator& administrator_;
  std::string source_;
};

std::unique_ptr<AdministratorScript> SimulatedAdministrator::make(const std::string& source) {
  if (cannotMake_ || plan_.answersNo("makeScript", source)) return nullptr;
  sources_.push_back(source);
  return std::make_unique<SimulatedScript>(*this, source);
}

void SimulatedAdministrator::grantsNext() {
  next_.push_back({.runs = true});
}

void SimulatedAdministrator::dismissesNext() {
  failsNext(AdministratorScript::kUserCancelled);
}

void SimulatedAdministrator::failsNext(int number) {
  next_.push_back({.fails = true, .number = number});
}

void SimulatedAdministrator::failsNextWithoutNumber() {
  next_.push_back({.fails = true});
}

void SimulatedAdministrator::succeedsWithoutEffectNext() {
  next_.push_back({});
}

void SimulatedAdministrator::failsAfterRunningNext(int number) {
  next_.push_back({.runs = true, .fails = true, .number = number});
}

ScriptErrorDictionary SimulatedAdministrator::perform(const std::string& commandLine) {
  commandLines_.push_back(commandLine);
  calledOffMainThread_ = calledOffMainThread_ || !dispatch_.isMainThread();
  if (duration_ > Duration{0}) dispatch_.sleep(duration_);
  takePlannedFault(commandLine);
  if (!next_.empty()) {
    const auto outcome = next_.front();
    next_.pop_front();
    return settle(outcome, commandLine);
  }
  if (dismissesAlways_) return errorNumber(AdministratorScript::kUserCancelled, "User canceled.");
  return runAsRoot(commandLine);
}

void SimulatedAdministrator::takePlannedFault(const std::string& commandLine) {
  const auto fault = plan_.faultOf("administrator", commandLine,
                                   {"dismissed", "fails", "has no effect", "fails after its work"});
  if (!fault) return;
  constexpr int kFailed = 1;
  const std::array<Outcome, 4> outcomes{{{.fails = true, .number = AdministratorScript::kUserCancelled},
                                         {.fails = true, .number = kFailed},
                                         {},
                                         {.runs = true, .fails = true, .number = kFailed}}};
  next_.push_front(outcomes.at(*fault));
}

ScriptErrorDictionary SimulatedAdministrator::settle(const Outcome& outcome, const std::string& commandLine) {
  auto result = outcome.runs ? runAsRoot(commandLine) : std::nullopt;
  if (!outcome.fails) return result;
  if (outcome.number) return errorNumber(*outcome.number, "It didn’t work.");
  return Json{{"NSAppleScriptErrorMessage", "It didn’t work."}};
}

ScriptErrorDictionary SimulatedAdministrator::runAsRoot(const std::string& commandLine) {
  const bool before = files_.runsAsRoot();
  files_.setRunsAsRoot(true);
  bool good = true;
  std::vector<std::string> command;
  auto words = shellWords(commandLine);
  words.emplace_back("&&");
  for (auto& word : words) {
    if (word != "&&") {
      command.push_back(std::move(word));
      continue;
    }
    good = good && runCommand(command);
    command.clear();
  }
  files_.setRunsAsRoot(before);
  if (good) return std::nullopt;
  return errorNumber(1, "The command exited with a non-zero status.");
}

bool SimulatedAdministrator::runCommand(const std::vector<std::string>& words) {
  if (words.size() == 3 && words[0] == "/bin/rm" && words[1] == "-rf") {
    return !files_.exists(words[2]) || files_.removeInPlace(words[2]).has_value();
  }
  if (words.size() == 4 && words[0] == "/usr/bin/ditto" && words[1] == "--noqtn") {
    return files_.mergeTree(words[2], words[3]).has_value();
  }
  if (words.size() == 4 && words[0] == "/usr/sbin/chown" && words[1] == "-R") return files_.exists(words[3]);
  return false;
}

}  // namespace installer::test
