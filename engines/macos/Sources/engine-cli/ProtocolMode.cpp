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
#include "Models/AppConstants.h"
#include "PackageSource.h"
#include "Platform/Machine.h"
#include "StdinCommandListener.h"
#include "Utils/AppList.h"
#include "Utils/Log.h"
#include "Utils/Logger.h"

namespace installer {

namespace {

constexpr std::string_view usage =
    "Usage: engine-cli <hello|run|check-updates|disk-free|export-logs> [flags]\n"
    "       engine-cli --silent --mode install|uninstall --apps brenna,tolvi,rulo,galdivane\n"
    "\n"
    "See protocol/README.md for the full command surface.";

using Controller = std::shared_ptr<EngineController>;

// Told twice on purpose: as an event for the shell, and in plain words for a person at a terminal.
std::int32_t refuse(const std::string& complaint) {
  EngineEmitter::emit({EngineEvent::Log{.level = std::string{EventLevel::error}, .message = complaint}});
  machine().streams.writeError(fmt::format("Error: {}\n", complaint));
  return AppConstants::ExitCode::invalidArguments;
}

std::int32_t refuseApps() {
  return refuse("Unknown app identifier in --apps. Valid values: " + availableAppIds());
}

std::int32_t hello(const Controller& controller, const Args& /*args*/) {
  return controller->hello();
}

std::int32_t checkUpdates(const Controller& controller, const Args& args) {
  const auto apps = parseApps(args.value("apps").value_or(""));
  return apps ? controller->checkUpdates(*apps) : refuseApps();
}

std::int32_t diskFree(const Controller& controller, const Args& args) {
  return controller->diskFree(args.value("path").value_or(machine().paths.applications));
}

std::int32_t exportLogs(const Controller& controller, const Args& args) {
  return controller->exportLogs(args.value("out"));
}

// A person's Ctrl-C lets the app at work end whole and its image be detached, and stops the rest.
void cancelOnTerminationRequest(const Controller& controller) {
  machine().signals.onTerminationRequest([weak = std::weak_ptr{controller}] {
    const auto stillRunning = weak.lock();
    if (stillRunning == nullptr) return;
    log("engine-cli: termination requested, cancelling the whole run");
    stillRunning->cancelAll();
  });
}

std::int32_t run(const Controller& controller, const Args& args) {
  const auto action = lowercased(args.value("action").value_or(""));
  if (action != "install" && action != "update" && action != "uninstall") {
    return refuse("--action must be install, update, or uninstall");
  }
  const auto apps = parseApps(args.value("apps").value_or(""));
  if (!apps) return refuseApps();
  if (args.has("install-dir")) {
    EngineEmitter::emit({EngineEvent::Log{
        .level = std::string{EventLevel::warn},
        .message = "--install-dir is not yet honored (Phase 1); installing to /Applications"}});
  }
  startStdinCommandListener(controller);
  cancelOnTerminationRequest(controller);
  // Meant as it is: a bare `--strict` has no value and doesn't count.
  const bool strict = lowercased(args.value("strict").value_or("")) == "true";
  if (action == "uninstall") return controller->runUninstall(*apps, strict);
  return controller->runInstall(*apps, action, strict);
}

struct Subcommand {
  std::string_view name;
  std::int32_t (*serve)(const Controller& controller, const Args& args);
};

constexpr std::array<Subcommand, 5> subcommands{{
    {"hello", hello},
    {"run", run},
    {"check-updates", checkUpdates},
    {"disk-free", diskFree},
    {"export-logs", exportLogs},
}};

std::int32_t dispatch(const Controller& controller, const Args& args) {
  for (const auto& subcommand : subcommands) {
    if (*args.subcommand == subcommand.name) return subcommand.serve(controller, args);
  }
  return refuse(fmt::format(
      "Unknown subcommand '{}'. Valid: hello, run, check-updates, disk-free, export-logs", *args.subcommand));
}

}  // namespace

std::int32_t runProtocolMode(const std::vector<std::string>& flags) {
  const Args args{flags};
  if (!args.subcommand) {
    machine().streams.writeError(usage);
    return AppConstants::ExitCode::invalidArguments;
  }
  // The source is chosen, and logged, before the subcommand is looked at.
  const auto controller = EngineController::make(makeProvider(args.has("offline")));
  const auto exitCode = dispatch(controller, args);
  Logger::shared().flush();
  return exitCode;
}

}  // namespace installer
