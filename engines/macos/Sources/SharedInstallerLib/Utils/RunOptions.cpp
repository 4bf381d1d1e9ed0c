#include "Utils/RunOptions.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <utility>

#include "Base/Text.h"
#include "Utils/AppList.h"
#include "Utils/Log.h"

namespace installer {

const std::string_view RunOptions::usageHint =
    "Usage: <installer> [--silent] [--mode install|uninstall] [--apps brenna,tolvi,rulo,galdivane] [--open-after-install true|false] [--strict true|false] [--verbose]\n"
    "\n"
    "Flags:\n"
    "  --silent                     Run without UI; exit with a deterministic code\n"
    "  --mode install|uninstall     Operation to perform (default: install)\n"
    "  --apps brenna,tolvi,rulo,galdivane Apps to act on (default: all four)\n"
    "  --open-after-install true    Launch installed apps after silent install (default: false)\n"
    "  --strict true                Any per-app failure fails the entire run (default: false)\n"
    "  --verbose                    Echo progress to the terminal (stderr); default off\n"
    "\n"
    "Exit codes:\n"
    "  0  Success\n"
    "  1  Partial success (non-strict mode: some apps failed, some succeeded)\n"
    "  2  Full failure (all apps failed)\n"
    "  3  Invalid arguments\n"
    "  4  Permission denied\n"
    "  5  Network unavailable (online mode only)";

namespace {

using Failure = std::optional<RunOptions::ParseError>;  // absent: the value was accepted

Failure takeMode(const std::string& value, RunOptions& options) {
  const auto mode = lowercased(value);
  for (const auto action : {InstallerAction::install, InstallerAction::uninstall}) {
    if (mode != rawValue(action)) continue;
    options.action = action;
    return {};
  }
  return RunOptions::ParseError{
      fmt::format("Unknown --mode value '{}'. Valid values: install, uninstall", value)};
}

Failure takeApps(const std::string& value, RunOptions& options) {
  const auto apps = parseApps(value);
  if (!apps) {
    return RunOptions::ParseError{
        fmt::format("Unknown app identifier '{}'. Valid values: {}", apps.error(), availableAppIds())};
  }
  options.selectedApps.insert(options.selectedApps.end(), apps->begin(), apps->end());
  return {};
}

// Any word but "true" means false, without an error.
Failure takeOpenAfterInstall(const std::string& value, RunOptions& options) {
  options.openAfterInstall = lowercased(value) == "true";
  return {};
}

Failure takeStrict(const std::string& value, RunOptions& options) {
  options.strict = lowercased(value) == "true";
  return {};
}

struct ValueFlag {
  std::string_view name;
  std::string_view complaintWithoutValue;
  Failure (*take)(const std::string& value, RunOptions& options);
};

constexpr std::array<ValueFlag, 4> kValueFlags{{
    {"--mode", "--mode requires a value: install | uninstall", takeMode},
    {"--apps", "--apps requires a value: comma-separated list (e.g. brenna,tolvi,rulo,galdivane)", takeApps},
    {"--open-after-install", "--open-after-install requires a value: true | false", takeOpenAfterInstall},
    {"--strict", "--strict requires a value: true | false", takeStrict},
}};

std::unexpected<RunOptions::ParseError> invalid(std::string_view description) {
  return std::unexpected(RunOptions::ParseError{std::string{description}});
}

}  // namespace

Expected<RunOptions, RunOptions::ParseError> RunOptions::parse(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2) return invalid("No arguments supplied");

  RunOptions options;
  bool sawSilent = false;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const auto flag = lowercased(arguments[i]);
    if (flag == "--silent") {
      sawSilent = true;
      continue;
    }
    const auto* const known = std::ranges::find(kValueFlags, flag, &ValueFlag::name);
    if (known == kValueFlags.end()) {
      log("RunOptions: Ignoring unrecognised argument '{}'", arguments[i]);
      continue;
    }
    // The value is the next argument, also when it looks like a flag.
    if (++i == arguments.size()) return invalid(known->complaintWithoutValue);
    if (auto failure = known->take(arguments[i], options)) return std::unexpected(*std::move(failure));
  }
  if (!sawSilent) return invalid("RunOptions is the --silent argument model; --silent is required");
  return options;
}

}  // namespace installer
