// The deletion as administrator, and what a refusal or failure of it means for the bundle.
#include <fmt/format.h>

#include "Installer/AppUninstaller.h"
#include "Installer/DMGInstaller.h"
#include "Installer/ShellQuoting.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

UninstallResult loggedFailure(const AppInfo& app, std::string message) {
  log(fmt::format("AppUninstaller: {}", message));
  return UninstallResult::failure(app, std::move(message));
}

UninstallResult authCancelledResult(const AppInfo& app) {
  auto result = loggedFailure(
      app, fmt::format("Cannot remove {0}: admin authorization was cancelled. {0} has been left installed.",
                       app.displayName));
  result.authCancelled = true;
  return result;
}

// Whatever stopped it, it is reported as a matter of permission; also an `rm` that claims a success while the
// path is still there.
UninstallResult privilegedRemovalFailedResult(const AppInfo& app) {
  auto result =
      loggedFailure(app, fmt::format("Cannot remove {}: the privileged removal failed.", app.displayName));
  result.permissionDenied = true;
  return result;
}

}  // namespace

UninstallResult AppUninstaller::escalatedRemoval(const AppInfo& app, const Path& path,
                                                 const std::optional<Path>& restorePath) {
  log(fmt::format("AppUninstaller: escalating removal of {} at {}", app.displayName, path));
  const auto outcome = DMGInstaller::runWithAdminPrivilegesOutcome(removalCommand(path));
  if (outcome == AdminOutcome::succeeded && !machine().files.itemExists(path)) {
    const Path reported = restorePath.value_or(path);
    log(fmt::format("AppUninstaller: Successfully removed {} from {} with admin privileges", app.displayName,
                    reported));
    forgetBundle(reported, path);
    return UninstallResult::makeSuccess(app, false);
  }
  if (restorePath && !restore(path, *restorePath, app)) return partialRemovalResult(app, path);
  if (outcome == AdminOutcome::cancelled) return authCancelledResult(app);
  return privilegedRemovalFailedResult(app);
}

}  // namespace installer
