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

#include "Base/Error.h"
#include "Base/Path.h"
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
  // one, is asked before each app; from its first no on, the apps are reported as never reached.
  static std::vector<UninstallResult> uninstallAll(const std::vector<AppInfo>& apps,
                                                   bool allowAdminEscalation,
                                                   const std::function<bool()>& mayGoOn = {});

 private:
  // One bundle on its way out.
  struct Removal {
    const AppInfo& app;
    Path path;    // where the app stands
    Path staged;  // where it lies while it is being deleted
    bool allowAdminEscalation;
  };

  // Asks every instance under these identifiers to quit, looks for up to five seconds, forces what remains.
  static void terminateRunningApp(const std::vector<std::string>& bundleIdentifiers);

  // The transaction.
  static UninstallResult removeBundle(const AppInfo& app, const Path& path, bool allowAdminEscalation);
  static UninstallResult stagingFailed(const Removal& removal, const Error& error);
  static UninstallResult giveUpUntouched(const Removal& removal);
  static UninstallResult deletionFailed(const Removal& removal, const Error& error);

  // What an install or a removal of the bundle at `path` left hidden beside it when it was killed.
  static void clearLeftovers(const Path& path);

  // Staging names: number 0 is the name itself, the others carry their number.
  static Path stagingPath(const Path& path, int number);
  static std::optional<Path> claimStagingPath(const Path& path);
  // Where an unprivileged delete would stop; absent when nothing was found that would stop it.
  static std::optional<Path> firstUnwritableDirectory(const Path& top);

  // Deletes `path` as administrator. On failure the bundle goes back to `restorePath`, if there is one.
  static UninstallResult escalatedRemoval(const AppInfo& app, const Path& path,
                                          const std::optional<Path>& restorePath);

  // Puts the bundle back, if it would work there. False when it stays staged.
  static bool restore(const Path& staged, const Path& path, const AppInfo& app);
  static bool bundleLooksIntact(const Path& path);

  static UninstallResult partialRemovalResult(const AppInfo& app, const Path& remains);
  static UninstallResult permissionDeniedResult(const AppInfo& app);

  // Clears what a half-finished removal left at the expected path. Absent when there is nothing of the kind.
  static std::optional<UninstallResult> removeHusk(const AppInfo& app, bool allowAdminEscalation);

  // Makes the platform and this process forget the bundle at both paths.
  static void forgetBundle(const Path& path, const Path& staged);
  static void unregisterFromLaunchServices(const Path& path);
};

}  // namespace installer
