#include "Installer/AppUninstaller.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "Installer/AppTurn.h"
#include "Installer/PrivilegedRunner.h"
#include "Installer/Removal.h"
#include "Installer/RunningInstances.h"
#include "Platform/Machine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"

namespace installer {

using namespace std::chrono_literals;

namespace {

UninstallResult uninstallInTurn(const AppInfo& app, bool allowAdminEscalation,
                                const std::function<bool()>& mayGoOn) {
  const auto turn = AppTurns::take(app, {.goesOn = [&] {
                                     if (mayGoOn) return mayGoOn();
                                     machine().dispatch.sleep(AppTurns::kLookInterval);
                                     return true;
                                   }});
  if (turn) return AppUninstaller::uninstall(app, allowAdminEscalation);
  if (turn.error() == AppTurns::Denied::givenUp) return UninstallResult::neverReached(app);
  return UninstallResult::failure(app, AppTurns::timeoutMessage(app));
}

}  // namespace

UninstallResult UninstallResult::makeSuccess(const AppInfo& app, bool alreadyAbsent) {
  UninstallResult result{app};
  result.success = true;
  result.alreadyAbsent = alreadyAbsent;
  return result;
}

UninstallResult UninstallResult::makeSkipped(const AppInfo& app, std::string reason) {
  UninstallResult result{app};
  result.skipped = true;
  result.skipReason = std::move(reason);
  return result;
}

UninstallResult UninstallResult::failure(const AppInfo& app, std::string message) {
  UninstallResult result{app};
  result.errorMessage = std::move(message);
  return result;
}

UninstallResult UninstallResult::neverReached(const AppInfo& app) {
  auto result = failure(app, "cancelled");
  result.cancelled = true;
  return result;
}

UninstallResult AppUninstaller::uninstall(const AppInfo& app, bool allowAdminEscalation) {
  return Removal{app, allowAdminEscalation}.run();
}

std::vector<UninstallResult> AppUninstaller::uninstallAll(const std::vector<AppInfo>& apps,
                                                          bool allowAdminEscalation,
                                                          const std::function<bool()>& mayGoOn) {
  std::vector<UninstallResult> results;
  bool goesOn = true;
  for (const AppInfo& app : apps) {
    goesOn = goesOn && (!mayGoOn || mayGoOn());
    if (!goesOn) {
      results.push_back(UninstallResult::neverReached(app));
      continue;
    }
    results.push_back(uninstallInTurn(app, allowAdminEscalation, mayGoOn));
    goesOn = !results.back().cancelled;
  }
  return results;
}

void Removal::clearLeftovers(const Path& path) {
  if (!machine().files.clearLeftovers(path)) return;
  log("AppUninstaller: removed leftovers of an interrupted run beside {}", path);
}

UninstallResult Removal::run() {
  log("AppUninstaller: Starting uninstall for {}", app_.displayName);
  const auto existing = ExistingAppDetector::detect(app_);
  const auto expectedPath = joined(machine().paths.applications, app_.appBundleName);
  clearLeftovers(expectedPath);
  if (!existing.primaryInstallation.isInstalled() || !existing.primaryPath) {
    if (auto result = removeHusk(expectedPath)) return *std::move(result);
    removeStagedRests(expectedPath);
    log("AppUninstaller: {} is not installed — nothing to remove", app_.displayName);
    return UninstallResult::makeSuccess(app_, true);
  }
  const Path& path = *existing.primaryPath;
  if (existing.primaryInstallation.isAppStore()) {
    log("AppUninstaller: Skipping {} — MAS install at {}", app_.displayName, path);
    return UninstallResult::makeSkipped(
        app_, fmt::format("{} was installed via the Mac App Store at {}. Remove it from Launchpad instead.",
                          app_.displayName, path));
  }
  terminateRunningApp();
  return removeBundle(path);
}

void Removal::terminateRunningApp() const {
  const auto request = [](const RunningApplication& application) {
    return fmt::format("Sending graceful quit to {} (pid {})", nameOf(application),
                       application.processIdentifier);
  };
  quitRunningInstances(app_.knownBundleIdentifiers(), {.speaker = "AppUninstaller",
                                                       .request = request,
                                                       .lookInterval = 500ms,
                                                       .settlingTime = 500ms,
                                                       .settlesAfterEveryWait = true});
}

// Removes a directory at the expected path that is no longer an app: the rest of an interrupted removal.
std::optional<UninstallResult> Removal::removeHusk(const Path& path) {
  if (!machine().files.directoryExists(path)) return std::nullopt;

  ExistingAppDetector::forgetCachedBundle(path);
  const auto bundle = machine().bundles.read(path);
  if (bundle && bundle->bundleIdentifier()) {
    log("AppUninstaller: {} is another app's bundle — leaving it alone", path);
    return std::nullopt;
  }
  if (hasAppStoreReceipt(path)) return std::nullopt;

  logWarn("AppUninstaller: found a husk of {} at {} — a previous removal left it partly deleted; clearing it",
          app_.displayName, path);
  terminateRunningApp();
  return removeBundle(path);
}

UninstallResult Removal::removeBundle(const Path& path) {
  path_ = location_ = path;
  clearLeftovers(path_);
  const auto staged = claimStagingPath();
  if (!staged) {
    return UninstallResult::failure(
        app_, fmt::format("Cannot remove {}: no free staging location next to {}.", app_.displayName, path_));
  }
  FileSystem& files = machine().files;
  if (const auto moved = files.moveItem(path_, *staged); !moved) return stagingFailed(moved.error());
  location_ = *staged;
  if (const auto obstacle = firstUnwritableDirectory()) return giveUpUntouched(*obstacle);
  if (const auto deleted = files.removeItem(location_); !deleted) return deletionFailed(deleted.error());
  log("AppUninstaller: Successfully removed {} from {}", app_.displayName, path_);
  return succeeded();
}

// The bundle is still unchanged at its path.
UninstallResult Removal::stagingFailed(const Error& error) {
  logError("AppUninstaller: could not stage {} out of {}: {}", app_.displayName, path_,
           error.localizedDescription);
  if (!isPermissionError(error)) return failed(error);
  return allowAdminEscalation_ ? escalatedRemoval() : permissionDeniedResult();
}

// The staged bundle is still complete.
UninstallResult Removal::giveUpUntouched(const Path& obstacle) {
  logWarn(
      "AppUninstaller: {} is not writable — an unprivileged delete of {} would stop partway, so escalating instead",
      obstacle, app_.displayName);
  if (allowAdminEscalation_) return escalatedRemoval();
  return restore() ? permissionDeniedResult() : partialRemovalResult();
}

// A part of the staged bundle may be deleted. The rest is deleted as administrator, for any kind of failure.
UninstallResult Removal::deletionFailed(const Error& error) {
  logError("AppUninstaller: removing the staged {} failed: {}", app_.displayName, error.localizedDescription);
  if (allowAdminEscalation_) return escalatedRemoval();
  if (!restore()) return partialRemovalResult();
  return isPermissionError(error) ? permissionDeniedResult() : failed(error);
}

UninstallResult Removal::succeeded() const {
  forgetBundle();
  return UninstallResult::makeSuccess(app_, false);
}

UninstallResult Removal::failed(const Error& error) const {
  return UninstallResult::failure(
      app_, fmt::format("Failed to remove {}: {}", app_.displayName, error.localizedDescription));
}

UninstallResult Removal::loggedFailure(std::string message) const {
  log("AppUninstaller: {}", message);
  return UninstallResult::failure(app_, std::move(message));
}

UninstallResult Removal::permissionDeniedResult() const {
  auto result = loggedFailure(fmt::format(
      "Cannot remove {}: permission denied. On macOS 13+, grant App Management permission in System Settings → Privacy & Security → App Management.",
      app_.displayName));
  result.permissionDenied = true;
  return result;
}

UninstallResult Removal::partialRemovalResult() const {
  return loggedFailure(fmt::format(
      "{} was removed from /Applications, but some of its files could not be deleted and remain at {}.",
      app_.displayName, location_));
}

}  // namespace installer
