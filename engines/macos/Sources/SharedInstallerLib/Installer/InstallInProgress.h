// One install under way: what its steps have found out so far. Inside the disk-image installer only.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Base/Path.h"
#include "Models/AppInfo.h"
#include "Utils/ExistingAppDetector.h"

namespace installer {

struct InstallInProgress {
  const AppInfo& app;
  std::string bundleName;  // file name of the chosen bundle in the image
  Path source;
  Path destination;  // changes when an App Store copy keeps the first choice
  std::optional<std::string> packageVersion = {};
  AppInstallationStatus existing = {};
  // Set when the old copy at the destination could only be removed as administrator.
  bool removalNeedsAdministrator = false;
};

}  // namespace installer
