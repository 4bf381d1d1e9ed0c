#include "Installer/AppUninstaller.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "Installer/PrivilegedRunner.h"
#include "Installer/RunningInstances.h"
#include "Platform/Machine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"

namespace installer {

using namespace std::chrono_literals;

UninstallResult UninstallResult::makeSuccess(const AppInfo& app, bool alreadyAbsent) {
  UninstallResult result{.app = app};
  result.success = true;
  result.alreadyAbsent = alreadyAbsent;
  return result;
}

UninstallResult UninstallResult::makeSkipped(const AppInfo& app, std::string reason) {
  UninstallResult result{.app = app};
  result.skipped = true;
  result.skipReason = std::move(reason);
  return result;
}

UninstallResult UninstallResult::failure(const AppInfo& app, std::string message) {
  UninstallResult result{.app = app};
  result.errorMessage = std::move(message);
  return result;
}

UninstallResult UninstallResult::neverReached(const AppInfo& app) {
  auto result = failure(app, "cancelled");
  result.cancelled = true;
  return result;
}

UninstallResult AppUninstaller::uninstall(const AppInfo& app, bool allowAdminEscalation) {
  log(fmt::format("AppUninstaller: Starting uninstall for {}", app.displayName));
  const auto existing = ExistingAppDetector::detect(app);
  clearLeftovers(joined(machine().paths.applications, app.appBundleName));
  if (!existing.primaryInstallation.isInstalled() || !existing.primaryPath) {
    if (auto result = removeHusk(app, allowAdminEscalation)) return *std::move(result);
    log(fmt::format("AppUninstaller: {} is not installed — nothing to remove", app.displayName));
    return UninstallResult::makeSuccess(app, true);
  }
  const Path& path = *existing.primaryPath;
  if (existing.primaryInstallation.isAppStore()) {
    log(fmt::format("AppUninstaller: Skipping {} — MAS install at {}", app.displayName, path));
    return UninstallResult::makeSkipped(
        app, fmt::format("{} was installed via the Mac App Store at {}. Remove it from Launchpad instead.",
                         app.displayName, path));
  }
  terminateRunningApp(app.knownBundleIdentifiers());
  return removeBundle(app, path, allowAdminEscalation);
}

void AppUninstaller::terminateRunningApp(const std::vector<std::string>& bundleIdentifiers) {
  const auto request = [](const RunningApplication& application) {
    return fmt::format("Sending graceful quit to {} (pid {})", nameOf(application),
                       application.processIdentifier);
  };
  quitRunningInstances(bundleIdentifiers, {.speaker = "AppUninstaller",
                                           .request = request,
                                           .lookInterval = 500ms,
                                           .settlingTime = 500ms,
                                           .settlesAfterEveryWait = true});
}

std::vector<UninstallResult> AppUninstaller::uninstallAll(const std::vector<AppInfo>& apps,
                                                          bool allowAdminEscalation,
                                                          const std::function<bool()>& mayGoOn) {
  std::vector<UninstallResult> results;
  bool goesOn = true;
  for (const AppInfo& app : apps) {
    goesOn = goesOn && (!mayGoOn || mayGoOn());
    results.push_back(goesOn ? uninstall(app, allowAdminEscalation) : UninstallResult::neverReached(app));
  }
  return results;
}

UninstallResult AppUninstaller::removeBundle(const AppInfo& app, const Path& path,
                                             bool allowAdminEscalation) {
  clearLeftovers(path);
  const auto staged = claimStagingPath(path);
  if (!staged) {
    return UninstallResult::failure(
        app, fmt::format("Cannot remove {}: no free staging location next to {}.", app.displayName, path));
  }
  const Removal removal{app, path, *staged, allowAdminEscalation};
  FileSystem& files = machine().files;

  if (const auto moved = files.moveItem(path, *staged); !moved) return stagingFailed(removal, moved.error());
  if (const auto obstacle = firstUnwritableDirectory(*staged)) {
    logWarn(fmt::format(
        "AppUninstaller: {} is not writable — an unprivileged delete of {} would stop partway, so escalating instead",
        *obstacle, app.displayName));
    return giveUpUntouched(removal);
  }
  if (const auto deleted = files.removeItem(*staged); !deleted) {
    return deletionFailed(removal, deleted.error());
  }
  log(fmt::format("AppUninstaller: Successfully removed {} from {}", app.displayName, path));
  forgetBundle(path, *staged);
  return UninstallResult::makeSuccess(app, false);
}

// Nothing has changed on disk yet.
UninstallResult AppUninstaller::stagingFailed(const Removal& removal, const Error& error) {
  const AppInfo& app = removal.app;
  logError(fmt::format("AppUninstaller: could not stage {} out of {}: {}", app.displayName, removal.path,
                       error.localizedDescription));
  if (!isPermissionError(error)) {
    return UninstallResult::failure(
        app, fmt::format("Failed to remove {}: {}", app.displayName, error.localizedDescription));
  }
  if (removal.allowAdminEscalation) return escalatedRemoval(app, removal.path, std::nullopt);
  return permissionDeniedResult(app);
}

// The staged bundle is still complete.
UninstallResult AppUninstaller::giveUpUntouched(const Removal& removal) {
  if (removal.allowAdminEscalation) return escalatedRemoval(removal.app, removal.staged, removal.path);
  if (!restore(removal.staged, removal.path, removal.app)) {
    return partialRemovalResult(removal.app, removal.staged);
  }
  return permissionDeniedResult(removal.app);
}

// Part of the staged bundle may be gone. As administrator the rest goes too, whatever stopped the deletion.
UninstallResult AppUninstaller::deletionFailed(const Removal& removal, const Error& error) {
  const AppInfo& app = removal.app;
  logError(fmt::format("AppUninstaller: removing the staged {} failed: {}", app.displayName,
                       error.localizedDescription));
  if (removal.allowAdminEscalation) return escalatedRemoval(app, removal.staged, removal.path);
  if (!restore(removal.staged, removal.path, app)) return partialRemovalResult(app, removal.staged);
  if (isPermissionError(error)) return permissionDeniedResult(app);
  return UninstallResult::failure(
      app, fmt::format("Failed to remove {}: {}", app.displayName, error.localizedDescription));
}

UninstallResult AppUninstaller::partialRemovalResult(const AppInfo& app, const Path& remains) {
  auto message = fmt::format(
      "{} was removed from /Applications, but some of its files could not be deleted and remain at {}.",
      app.displayName, remains);
  log(fmt::format("AppUninstaller: {}", message));
  return UninstallResult::failure(app, std::move(message));
}

UninstallResult AppUninstaller::permissionDeniedResult(const AppInfo& app) {
  auto message = fmt::format(
      "Cannot remove {}: permission denied. On macOS 13+, grant App Management permission in System Settings → Privacy & Security → App Management.",
      app.displayName);
  log(fmt::format("AppUninstaller: {}", message));
  auto result = UninstallResult::failure(app, std::move(message));
  result.permissionDenied = true;
  return result;
}

// A directory at the expected path that is no app any more, left by a removal that stopped half-way.
std::optional<UninstallResult> AppUninstaller::removeHusk(const AppInfo& app, bool allowAdminEscalation) {
  const auto path = joined(machine().paths.applications, app.appBundleName);
  if (!machine().files.directoryExists(path)) return std::nullopt;

  ExistingAppDetector::forgetCachedBundle(path);
  const auto bundle = machine().bundles.read(path);
  if (bundle && bundle->bundleIdentifier()) {
    log(fmt::format("AppUninstaller: {} is another app's bundle — leaving it alone", path));
    return std::nullopt;
  }
  if (hasAppStoreReceipt(path)) return std::nullopt;

  logWarn(fmt::format(
      "AppUninstaller: found a husk of {} at {} — a previous removal left it partly deleted; clearing it",
      app.displayName, path));
  terminateRunningApp(app.knownBundleIdentifiers());
  return removeBundle(app, path, allowAdminEscalation);
}

}  // namespace installer
