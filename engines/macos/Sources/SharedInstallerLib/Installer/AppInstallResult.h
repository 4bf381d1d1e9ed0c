// What became of one app of an install run.
#pragma once

#include <optional>
#include <string>

#include "Models/AppInfo.h"

namespace installer {

struct AppInstallResult {
  AppInfo app;
  bool success = false;                           // true only if the bundle is in place
  std::optional<std::string> errorMessage = {};   // for a person; "cancelled" for a cancelled app
  std::optional<std::string> errorCode = {};      // stable code; absent when the failure has none of its own
  std::optional<std::string> installedPath = {};  // where the bundle lies, on success
  bool cancelled = false;                         // given up because of a cancel
  bool alreadyCurrent = false;  // a success without copying: the installed copy was up to date
};

}  // namespace installer
