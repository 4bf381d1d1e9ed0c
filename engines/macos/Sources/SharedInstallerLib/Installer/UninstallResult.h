// What became of one app that was to be removed.
#pragma once

#include <optional>
#include <string>

#include "Models/AppInfo.h"

namespace installer {

struct UninstallResult {
  AppInfo app;
  bool success = false;                          // the app is gone, or was never there
  bool alreadyAbsent = false;                    // with `success`: there was nothing to remove
  bool skipped = false;                          // deliberately not removed; `success` is false
  std::optional<std::string> skipReason = {};    // for a person; with `skipped`
  std::optional<std::string> errorMessage = {};  // for a person; on failure
  // The failure calls for a permission that the person can grant, or the privileged removal failed.
  bool permissionDenied = false;
  bool authCancelled = false;  // the person refused the administrator prompt
  bool cancelled = false;      // never reached: the run was cancelled before

  static UninstallResult makeSuccess(const AppInfo& app, bool alreadyAbsent);
  static UninstallResult makeSkipped(const AppInfo& app, std::string reason);
  static UninstallResult failure(const AppInfo& app, std::string message);
  static UninstallResult neverReached(const AppInfo& app);
};

}  // namespace installer
