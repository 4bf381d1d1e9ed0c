#include "ProtocolMode.h"

#include <array>
#include <fmt/format.h>
#include <memory>
#include <string_view>

#include "Args.h"
#include "Base/Text.h"
#include "Engine/EngineController.h"
#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Models/Vocabulary.h"
#include "PackageSource.h"
#include "Platform/Machine.h"
#include "StdinCommandListener.h"
#include "Utils/AppList.h"
#include "Utils/Log.h"
#include "Utils/Logger.h"

namespace installer {

namespace {

constexpr std::string_view kUsage =
    "Usage: engine-cli <hello|run|check-updates|disk-free|export-logs> [flags]\n"
    "       engine-cli --silent --mode install|uninstall --apps brenna,tolvi,rulo,galdivane\n"
    "\n"
    "See protocol/README.md for the full command surface.";

using Controller = std::shared_ptr<EngineController>;

// Reported twice on purpose: as an event for the shell, and as text for a person at a terminal.
ExitCode refuse(const std::string& complaint) {
  EngineEmitter::emit({EngineEvent::Log{.level = EventLevel::error, .message = complaint}});
  machine().streams.writeError(fmt::format("Error: {}\n", complaint));
  return ExitCode::invalidArguments;
}

ExitCode refuseApps() {
  return refuse("Unknown app identifier in --apps. Valid values: " + availableAppIds());
}

ExitCode hello(const Controller& controller, const Args& /*args*/) {
  return controller->hello();
}

ExitCode checkUpdates(const Controller& controller, const Args& args) {
  const auto apps = parseApps(args.value("apps").value_or(""));
  return apps ? controller->checkUpdates(*apps) : refuseApps();
}

ExitCode diskFree(const Controller& controller, const Args& args) {
  return controller->diskFree(args.value("path").value_or(machine().paths.applications));
}

ExitCode exportLogs(const Controller& controller, const Args& args) {
  return controller->exportLogs(args.value("out"));
}

// A Ctrl-C completes the current app, detaches its image, and cancels the rest.
void cancelOnTerminationRequest(const Controller& controller) {
  machine().signals.onTerminationRequest([weak = std::weak_ptr{controller}] {
    const auto stillRunning = weak.lock();
    if (stillRunning == nullptr) return;
    log("engine-cli: termination requested, cancelling the whole run");
    stillRunning->cancelAll();
  });
}

ExitCode run(const Controller& controller, const Args& args) {
  const auto action = fromRawValue<Action>(lowercased(args.value("action").value_or("")));
  if (action != Action::install && action != Action::update && action != Action::uninstall) {
    return refuse("--action must be install, update, or uninstall");
  }
  const auto apps = parseApps(args.value("apps").value_or(""));
  if (!apps) return refuseApps();
  if (args.has("install-dir")) {
    EngineEmitter::emit({EngineEvent::Log{
        .level = EventLevel::warn,
        .message = "--install-dir is not yet honored (Phase 1); installing to /Applications"}});
  }
  startStdinCommandListener(controller);
  cancelOnTerminationRequest(controller);
  // Intended: a bare `--strict` has no value and no effect.
  const bool strict = lowercased(args.value("strict").value_or("")) == "true";
  if (action == Action::uninstall) return controller->runUninstall(*apps, strict);
  return controller->runInstall(*apps, *action, strict);
}

struct Subcommand {
  std::string_view name;
  ExitCode (*serve)(const Controller& controller, const Args& args);
};

constexpr std::array<Subcommand, 5> kSubcommands{{
    {"hello", hello},
    {"run", run},
    {"check-updates", checkUpdates},
    {"disk-free", diskFree},
    {"export-logs", exportLogs},
}};

ExitCode dispatch(const Controller& controller, const Args& args) {
  for (const auto& subcommand : kSubcommands) {
    if (*args.subcommand == subcommand.name) return subcommand.serve(controller, args);
  }
  return refuse(fmt::format(
      "Unknown subcommand '{}'. Valid: hello, run, check-updates, disk-free, export-logs", *args.subcommand));
}

}  // namespace

ExitCode runProtocolMode(const std::vector<std::string>& flags) {
  const Args args{flags};
  if (!args.subcommand) {
    machine().streams.writeError(kUsage);
    return ExitCode::invalidArguments;
  }
  // The source is selected, and logged, before the subcommand is checked.
  const auto controller = EngineController::make(makeProvider(args.has("offline")));
  const auto exitCode = dispatch(controller, args);
  Logger::shared().flush();
  return exitCode;
}

}  // namespace installer
