#include "SilentMode.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "Installer/SilentRunner.h"
#include "PackageSource.h"
#include "Platform/Machine.h"
#include "Utils/BundledPackages.h"
#include "Utils/Log.h"
#include "Utils/Logger.h"
#include "Utils/RunOptions.h"

namespace installer {

namespace {

bool holds(const std::vector<std::string>& flags, std::string_view flag) {
  return std::ranges::find(flags, flag) != flags.end();
}

// Called before the arguments are parsed, so that the banner precedes an error about them.
void turnOnVerbosity() {
  Logger::shared().setEchoToStandardError(true);
  machine().streams.writeError("Kelo Desk Apps Installer — verbose mode\n");
}

// A termination request, for example a Ctrl-C, completes the current app, detaches its image, and leaves out
// the rest.
void cancelOnTerminationRequest(const std::shared_ptr<SilentRunner>& runner) {
  machine().signals.onTerminationRequest([weak = std::weak_ptr{runner}] {
    const auto stillRunning = weak.lock();
    if (stillRunning == nullptr) return;
    log("engine-cli: termination requested, cancelling the whole run");
    stillRunning->cancel();
  });
}

ExitCode refuseArguments(const std::string& complaint) {
  log("engine-cli: invalid arguments: " + complaint);
  machine().streams.writeError(fmt::format("Error: {}\n\n{}\n", complaint, RunOptions::usageHint));
  Logger::shared().flush();
  return ExitCode::invalidArguments;
}

}  // namespace

ExitCode runSilentMode(const std::vector<std::string>& argv, const std::vector<std::string>& flags) {
  if (holds(flags, "--verbose")) turnOnVerbosity();
  const auto options = RunOptions::parse(argv);
  if (!options) return refuseArguments(options.error().description);

  // Decided here, so the log of a run that is offline because of its images names the flag as the reason.
  const bool offline = holds(flags, "--offline") || BundledPackages::bundledPackagesAvailable();
  const auto runner = std::make_shared<SilentRunner>(makeProvider(offline));
  cancelOnTerminationRequest(runner);
  const auto exitCode = runner->run(*options);
  Logger::shared().flush();
  return exitCode;
}

}  // namespace installer
