// The hidden name beside the bundle, and the look for what would stop its deletion.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Installer/AppUninstaller.h"
#include "Installer/DMGInstaller.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/FileSystem.h"
#include "Platform/Machine.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr int stagingCandidates = 20;

}  // namespace

Path AppUninstaller::stagingPath(const Path& path, int number) {
  auto name = fmt::format(".{}.kelo-uninstall", lastPathComponent(path));
  if (number > 0) name += fmt::format(".{}", number);
  return joined(parentFolder(path), name);
}

void AppUninstaller::clearLeftovers(const Path& path) {
  if (!machine().files.clearLeftovers(path)) return;
  log(fmt::format("AppUninstaller: cleared what an interrupted run left beside {}", path));
}

std::optional<Path> AppUninstaller::claimStagingPath(const Path& path) {
  FileSystem& files = machine().files;
  for (int number = 0; number < stagingCandidates; ++number) {
    auto candidate = stagingPath(path, number);
    if (!files.itemExists(candidate)) return candidate;

    // Left by an earlier run that didn't come to its end.
    log(fmt::format("AppUninstaller: clearing a leftover staging path at {}", candidate));
    const auto removed = files.removeItem(candidate);
    if (!files.itemExists(candidate)) return candidate;
    logWarn(fmt::format("AppUninstaller: could not clear {} — trying the next staging name", candidate));
    if (!removed) logWarn("AppUninstaller: " + removed.error().localizedDescription);
  }
  logError(fmt::format("AppUninstaller: no free staging name beside {}", path));
  return std::nullopt;
}

std::optional<Path> AppUninstaller::firstUnwritableDirectory(const Path& top) {
  FileSystem& files = machine().files;
  if (files.isSymbolicLink(top)) return std::nullopt;  // its target stays as it is
  if (!files.isWritable(top)) return top;

  std::optional<Path> found;
  const auto visit = [&](const DirectoryEntry& entry) {
    if (found || entry.isSymbolicLink) return Descend::no;
    if (entry.isDirectory && !files.isWritable(entry.path)) found = entry.path;
    return found ? Descend::no : Descend::yes;
  };
  const auto onError = [&found](const Path& path, const Error& error) {
    if (found) return;  // the answer stands; the rest of the walk is of no interest
    logWarn(fmt::format("AppUninstaller: cannot enumerate {}: {}", path, error.localizedDescription));
  };
  // Without an answer from the walk, the deletion itself will tell.
  (void)files.enumerate(top, HiddenEntries::visit, visit, onError);
  return found;
}

// The way back, and the platform's memory of where the bundle stood.
namespace {

// The information of the bundle as it lies on disk; absent unless it is a dictionary.
std::optional<Json> readInfoPlist(const Path& path) {
  const auto bytes = readBoundedFile(machine().files, path, kMaximumInformationBytes);
  if (!bytes) return std::nullopt;
  auto information = machine().propertyList.parse(*bytes);
  if (!information || !information->is_object()) return std::nullopt;
  return *std::move(information);
}

}  // namespace

bool AppUninstaller::restore(const Path& staged, const Path& path, const AppInfo& app) {
  if (!bundleLooksIntact(staged)) {
    logError(fmt::format(
        "AppUninstaller: NOT restoring {} — the staged bundle at {} is no longer complete; leaving it staged rather than putting a broken app back into /Applications",
        app.displayName, staged));
    unregisterFromLaunchServices(path);
    ExistingAppDetector::forgetCachedBundle(path);
    return false;
  }
  if (const auto moved = machine().files.moveItem(staged, path); !moved) {
    logError(fmt::format("AppUninstaller: FAILED to restore {} from {} to {}: {}", app.displayName, staged,
                         path, moved.error().localizedDescription));
    return false;
  }
  ExistingAppDetector::forgetCachedBundle(path);
  log(fmt::format("AppUninstaller: restored {} to {}", app.displayName, path));
  return true;
}

// Looks at the two things without which a bundle can't start, and at nothing else.
bool AppUninstaller::bundleLooksIntact(const Path& path) {
  const auto information = readInfoPlist(joined(path, "Contents/Info.plist"));
  if (!information) return false;
  const auto executable = information->find("CFBundleExecutable");
  if (executable == information->end() || !executable->is_string()) return false;
  return machine().files.fileExists(joined(joined(path, "Contents/MacOS"), executable->get<std::string>()));
}

void AppUninstaller::forgetBundle(const Path& path, const Path& staged) {
  unregisterFromLaunchServices(path);
  if (staged != path) unregisterFromLaunchServices(staged);
  ExistingAppDetector::forgetCachedBundle(path);
  ExistingAppDetector::forgetCachedBundle(staged);
}

void AppUninstaller::unregisterFromLaunchServices(const Path& path) {
  const Path& lsregister = machine().paths.lsregister;
  if (!machine().files.isExecutable(lsregister)) return;
  const auto exit = machine().processes.run(lsregister, {"-u", path}, CapturedOutput::none);
  if (!exit) {
    logWarn(fmt::format("AppUninstaller: lsregister -u failed: {}", exit.error().localizedDescription));
    return;
  }
  log(fmt::format("AppUninstaller: lsregister -u {} exited {}", path, exit->status));
}

// The deletion as administrator, and what a refusal or failure of it means for the bundle.
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
