#include "SilentRoad.h"

#include <algorithm>
#include <fmt/format.h>

#include "Installer/SilentRunner.h"
#include "Models/AppConstants.h"
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

// Before the arguments are looked at, so that the banner stands above a complaint about them too.
void turnOnVerbosity() {
  Logger::shared().setEchoToStandardError(true);
  machine().streams.writeError("Kelo Desk Apps Installer — verbose mode\n");
}

std::int32_t refuse(const std::string& complaint) {
  log("engine-cli: invalid arguments: " + complaint);
  machine().streams.writeError(fmt::format("Error: {}\n\n{}\n", complaint, RunOptions::usageHint));
  Logger::shared().flush();
  return AppConstants::ExitCode::invalidArguments;
}

}  // namespace

std::int32_t takeSilentRoad(const std::vector<std::string>& argv, const std::vector<std::string>& flags) {
  if (holds(flags, "--verbose")) turnOnVerbosity();
  const auto options = RunOptions::parse(argv);
  if (!options) return refuse(options.error().description);

  // Decided here, so a run that is offline for the images beside it gives the flag as its reason in the log.
  const bool offline = holds(flags, "--offline") || BundledPackages::bundledPackagesAvailable();
  const auto exitCode = SilentRunner{makeProvider(offline)}.run(*options);
  Logger::shared().flush();
  return exitCode;
}

}  // namespace installer
