// Removes installed applications, each as a transaction: the bundle first moves to a hidden name in the same
// folder, everything that may fail happens to it there, and on failure it is moved back if it is still whole.
// So the app's own path holds the complete old app or nothing. App Store copies are never touched.
//
// Static operations only; synchronous; one app at a time.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Models/AppInfo.h"

namespace installer {

// What became of one app that was to be removed.
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

class AppUninstaller {
 public:
  using UninstallResult = ::installer::UninstallResult;

  // Removes the primary copy; other variants are quit but stay. Without `allowAdminEscalation` nobody is ever
  // asked for a password, and the result says `permissionDenied` instead. With it, a caller off the main
  // thread has to keep the main queue served.
  static UninstallResult uninstall(const AppInfo& app, bool allowAdminEscalation);

  // Each in turn; a failure doesn't stop the walk. Results in the order of `apps`. `mayGoOn`, if there is
  // one, is asked before each app and while another engine is at work; from its first no on, the apps are
  // reported as never reached.
  static std::vector<UninstallResult> uninstallAll(const std::vector<AppInfo>& apps,
                                                   bool allowAdminEscalation,
                                                   const std::function<bool()>& mayGoOn = {});

  // Removes what a killed install or removal of the app left under hidden names beside its place. Only while
  // no other engine can be at work there. What can't be removed stays.
  static void clearInterruptedWork(const AppInfo& app);
};

}  // namespace installer
