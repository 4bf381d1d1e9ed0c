// Both command lines and the lines on standard input, in whole runs on a simulated machine.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "Args.h"
#include "Base/Text.h"
#include "Engine/EngineControllerFixture.h"
#include "EngineCLI.h"
#include "EngineCLI/CommandLineModel.h"
#include "JSONLaws.h"
#include "StdinCommandListener.h"
#include "Support/SimulatedMachine.h"
#include "Targets.h"
#include "Utils/RunOptions.h"

namespace installer::test {

namespace {

void requireAStatedEnd(SimulatedMachine& machine, const Tokens& tokens) {
  machine.network.setOffline();
  machine.streams.closeInput();
  runEngineCLI({"engine-cli", "hello"});  // the first run's lines about the log are ignored
  machine.streams.forgetOutput();
  auto arguments = tokens;
  arguments.insert(arguments.begin(), "engine-cli");
  const auto status = runEngineCLI(arguments);
  require(machine.streams.events().size() == machine.streams.outputLines().size(), "every line is an event");
  require(endSeen(machine.streams, status) == endOf(tokens), "the run ends as the grammar says");
}

void requireSameOptions(const RunOptions& options, const SilentLine& line) {
  std::vector<std::string> apps;
  for (const auto app : options.selectedApps) apps.emplace_back(rawValue(app));
  require(apps == line.apps, "the apps are those of the line, in its order");
  require(rawValue(options.action) == line.mode, "the action is that of the line");
  require(options.openAfterInstall == line.opensApps && options.strict == line.isStrict,
          "so are the switches");
}

// An install of two apps, of which the first is being acquired when the lines arrive.
class TwoInstalls : public EngineControllerTest {
 public:
  void TestBody() override {}

  // The two statuses of the done event.
  Lines statusesAfter(const Lines& lines) {
    using enum AppIdentifier;
    provider->on(brenna).takes(Duration{60.0}).delivers(image(brenna, "2.0"));
    provider->on(tolvi).delivers(image(tolvi, "3.0"));
    startStdinCommandListener(controller);
    for (const auto& line : lines) machine.streams.feedLineAt(Duration{10.0}, line);
    machine.streams.closeInputAt(Duration{20.0});
    install({brenna, tolvi});
    Lines statuses;
    const auto done = event("done");
    for (const auto& result : done["results"]) statuses.push_back(result["status"]);
    return statuses;
  }
};

// The apps that a line cancels.
std::set<std::string> cancelledBy(std::string_view line) {
  (void)readJSON(line);
  const auto command = JSONReader::parse(line, JSONReader::BadValues::refuse);
  if (!command || JSONReader::string(*command, "type") != "cancel") return {};
  const auto app = JSONReader::string(*command, "app").value_or("");
  if (app.empty()) return {"brenna", "tolvi"};
  return {lowercased(app)};
}

}  // namespace

void fuzzProtocolCommandLine(std::string_view text) {
  const auto tokens = linesOf(text);
  const Args args{tokens};
  for (const auto& name : args.switches) {
    require(args.value(name) == optionIn(tokens, name), "an option has its last value");
  }
  for (const auto& [name, value] : args.values) require(args.has(name), "a value belongs to an option");
  SimulatedMachine machine;
  requireAStatedEnd(machine, tokens);
}

void fuzzSilentCommandLine(std::string_view text) {
  auto tokens = linesOf(text);
  tokens.insert(tokens.begin(), "engine-cli");
  tokens.insert(tokens.begin() + 1, "--silent");
  SimulatedMachine machine;
  const auto options = RunOptions::parse(tokens);
  tokens.erase(tokens.begin());
  const auto line = silentLine(tokens);
  require(options.has_value() == line.has_value(), "exactly the grammar is taken");
  if (options) requireSameOptions(*options, *line);
  requireAStatedEnd(machine, tokens);
}

void fuzzStdinLines(std::string_view text) {
  const auto lines = linesOf(text);
  std::set<std::string> cancelled;
  for (const auto& line : lines) cancelled.merge(cancelledBy(line));
  TwoInstalls run;
  const auto statuses = run.statusesAfter(lines);
  const auto status = [&cancelled](const char* app) {
    return cancelled.contains(app) ? "cancelled" : "installed";
  };
  require(statuses == Lines{status("brenna"), status("tolvi")}, "exactly what the lines name is cancelled");
}

}  // namespace installer::test
