// The removal of one app as a transaction. Used by the uninstaller only, on its thread.
#pragma once

#include <optional>
#include <string>

#include "Base/Error.h"
#include "Base/Path.h"
#include "Installer/AppUninstaller.h"
#include "Models/AppInfo.h"

namespace installer {

class Removal {
 public:
  // `app` must outlive the removal.
  Removal(const AppInfo& app, bool allowAdminEscalation)
      : app_{app}, allowAdminEscalation_{allowAdminEscalation} {}

  UninstallResult run();  // once

  // Removes the hidden siblings that a killed copy or deletion of the bundle at `path` left, and logs it.
  static void clearLeftovers(const Path& path);

 private:
  const AppInfo& app_;
  const bool allowAdminEscalation_;
  Path path_;      // the app's own path
  Path location_;  // where the bundle is: at `path_`, or staged beside it

  // Requests all instances of the app to quit, waits up to five seconds, and ends the rest by force.
  void terminateRunningApp() const;
  // Removes the rest of an interrupted removal at `path`. Absent when there is none.
  std::optional<UninstallResult> removeHusk(const Path& path);

  UninstallResult removeBundle(const Path& path);
  UninstallResult stagingFailed(const Error& error);
  UninstallResult giveUpUntouched(const Path& obstacle);
  UninstallResult deletionFailed(const Error& error);
  UninstallResult succeeded() const;
  UninstallResult failed(const Error& error) const;
  UninstallResult loggedFailure(std::string message) const;
  UninstallResult permissionDeniedResult() const;
  UninstallResult partialRemovalResult() const;

  // +Transaction.
  std::optional<Path> claimStagingPath() const;
  // Deletes, as administrator, what interrupted removals of the bundle at `path` left. Failures are ignored:
  // the app itself is absent.
  void removeStagedRests(const Path& path) const;
  // The first directory that would stop an unprivileged delete; absent when there is none.
  std::optional<Path> firstUnwritableDirectory() const;
  // Deletes the bundle as administrator. If that fails, a staged bundle is restored.
  UninstallResult escalatedRemoval();
  UninstallResult authCancelledResult() const;
  UninstallResult privilegedRemovalFailedResult() const;
  // Moves the staged bundle back if it is still complete. False when it stays staged.
  bool restore();
  // Unregisters the bundle at both paths and removes it from the cache.
  void forgetBundle() const;
};

}  // namespace installer
