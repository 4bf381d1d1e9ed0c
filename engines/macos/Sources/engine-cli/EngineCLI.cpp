#include "EngineCLI.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Models/AppConstants.h"
#include "Platform/Machine.h"
#include "ProtocolMode.h"
#include "SilentMode.h"
#include "Utils/Log.h"
#include "Utils/Logger.h"

namespace installer {

std::int32_t runEngineCLI(const std::vector<std::string>& argv) {
  assert(machine().dispatch.isMainThread());
  log("engine-cli launching — {} {}", AppConstants::Brand::installerName,
      machine().systemInfo.operatingSystemVersionString());
  // Flushed first, because the exit with the usage text doesn't wait for the log.
  Logger::shared().flush();
  const std::vector<std::string> flags(argv.begin() + (argv.empty() ? 0 : 1), argv.end());
  // "--silent", spelt exactly so, anywhere on the line has precedence over any subcommand.
  if (std::ranges::find(flags, "--silent") != flags.end()) {
    return std::to_underlying(runSilentMode(argv, flags));
  }
  return std::to_underlying(runProtocolMode(flags));
}

}  // namespace installer
