// The command line of an unattended run. A plain value; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Base/Error.h"
#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"

namespace installer {

enum class InstallerAction { install, uninstall };

constexpr std::string_view rawValue(InstallerAction action) {
  return rawValue(action == InstallerAction::install ? Action::install : Action::uninstall);
}

struct RunOptions {
  InstallerAction action = InstallerAction::install;
  std::vector<AppIdentifier> selectedApps;  // as given, duplicates kept; empty means all of the catalog
  bool openAfterInstall = false;
  bool strict = false;  // any app's failure fails the whole run

  struct ParseError {
    std::string description;  // a sentence for the user
  };

  // Takes the whole argument vector, the program's name first. Stops at the first failure, in the order of
  // the arguments. Unknown arguments are logged and skipped, so that a newer caller can pass newer flags.
  // Prints nothing.
  static Expected<RunOptions, ParseError> parse(const std::vector<std::string>& arguments);

  static const std::string_view usageHint;
};

}  // namespace installer
