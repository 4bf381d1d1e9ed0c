// Removes installed applications, each as a transaction: the bundle is first moved to a hidden name in the
// same folder, deleted there, and moved back after a failure if it is still complete. So the app's path has
// the complete old app or nothing. App Store copies are never changed.
//
// Static operations only; synchronous; one app at a time.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Models/AppInfo.h"

namespace installer {

// The result of the removal of one app.
struct UninstallResult {
  AppInfo app;
  bool success = false;                     // the app was removed, or wasn't installed
  bool alreadyAbsent = false;               // with `success`: the app wasn't installed
  bool skipped = false;                     // intentionally not removed; `success` is false
  std::optional<std::string> skipReason;    // for a person; with `skipped`
  std::optional<std::string> errorMessage;  // for a person; on failure
  // The failure is a permission that the user can grant, or the privileged removal failed.
  bool permissionDenied = false;
  bool authCancelled = false;  // the user dismissed the administrator prompt
  bool cancelled = false;      // the run was cancelled before this app

  static UninstallResult makeSuccess(const AppInfo& app, bool alreadyAbsent);
  static UninstallResult makeSkipped(const AppInfo& app, std::string reason);
  static UninstallResult failure(const AppInfo& app, std::string message);
  static UninstallResult neverReached(const AppInfo& app);

 private:
  explicit UninstallResult(AppInfo itsApp) : app{std::move(itsApp)} {}
};

class AppUninstaller {
 public:
  using UninstallResult = ::installer::UninstallResult;

  // Removes the primary copy; other variants are quit but stay. Without `allowAdminEscalation` there is no
  // password prompt, and the result has `permissionDenied` instead. With it, the main queue must be served if
  // the caller isn't the main thread.
  static UninstallResult uninstall(const AppInfo& app, bool allowAdminEscalation);

  // Removes the apps in order; a failure doesn't stop the others. Results in the order of `apps`. `mayGoOn`,
  // if not empty, is called before each app and during a wait for another engine; after its first false, the
  // remaining apps are reported as never reached.
  static std::vector<UninstallResult> uninstallAll(const std::vector<AppInfo>& apps,
                                                   bool allowAdminEscalation,
                                                   const std::function<bool()>& mayGoOn = {});

  // Removes the hidden items that killed installs and removals left in the applications folder. Puts back a
  // complete bundle that only an administrator may remove. Only with the turn. Failures are ignored.
  static void clearInterruptedWork();
};

}  // namespace installer
