// The staging name beside the bundle, the check for obstacles to its deletion, the restoration, and the
// deletion as administrator.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Installer/PrivilegedRunner.h"
#include "Installer/Removal.h"
#include "Platform/FileSystem.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr int kStagingCandidates = 20;
constexpr std::string_view kStagingEnding = ".kelo-uninstall";

// Number 0 is the plain name, the others contain their number.
Path stagingPath(const Path& path, int number) {
  auto name = fmt::format(".{}{}", lastPathComponent(path), kStagingEnding);
  if (number > 0) name += fmt::format(".{}", number);
  return joined(parentFolder(path), name);
}

}  // namespace

std::optional<Path> Removal::claimStagingPath() const {
  FileSystem& files = machine().files;
  for (int number = 0; number < kStagingCandidates; ++number) {
    auto candidate = stagingPath(path_, number);
    if (!files.itemExists(candidate)) return candidate;

    // A leftover of an interrupted run.
    log("AppUninstaller: clearing a leftover staging path at {}", candidate);
    const auto removed = files.removeItem(candidate);
    if (!files.itemExists(candidate)) return candidate;
    logWarn("AppUninstaller: could not clear {} — trying the next staging name", candidate);
    if (!removed) logWarn("AppUninstaller: " + removed.error().localizedDescription);
  }
  logError("AppUninstaller: no free staging name beside {}", path_);
  return std::nullopt;
}

std::optional<Path> Removal::firstUnwritableDirectory() const {
  FileSystem& files = machine().files;
  const Path& top = location_;
  if (files.isSymbolicLink(top)) return std::nullopt;  // its target isn't changed
  if (!files.isWritable(top)) return top;

  std::optional<Path> found;
  const auto visit = [&](const DirectoryEntry& entry) {
    if (found || entry.isSymbolicLink) return Descend::no;
    if (entry.isDirectory && !files.isWritable(entry.path)) found = entry.path;
    return found ? Descend::no : Descend::yes;
  };
  const auto onError = [&found](const Path& path, const Error& error) {
    if (found) return;  // the result is final; the rest of the walk doesn't matter
    logWarn("AppUninstaller: cannot enumerate {}: {}", path, error.localizedDescription);
  };
  // Failures are ignored: the deletion then fails and reports the reason.
  (void)files.enumerate(top, HiddenEntries::visit, visit, onError);
  return found;
}

namespace {

// The Info.plist at `path`, read from disk; absent unless it is a dictionary.
std::optional<Json> readInfoPlist(const Path& path) {
  const auto bytes = readBoundedFile(machine().files, path, kMaximumInformationBytes);
  if (!bytes) return std::nullopt;
  auto information = machine().propertyList.parse(*bytes);
  if (!information || !information->is_object()) return std::nullopt;
  return *std::move(information);
}

// Checks only the two files that a bundle needs to start.
bool bundleLooksIntact(const Path& path) {
  const auto information = readInfoPlist(joined(path, "Contents/Info.plist"));
  if (!information) return false;
  const auto executable = JSONReader::string(*information, "CFBundleExecutable");
  return executable && machine().files.fileExists(joined(joined(path, "Contents/MacOS"), *executable));
}

bool isStagingPath(const Path& staged, const Path& path) {
  for (int number = 0; number < kStagingCandidates; ++number) {
    if (staged == stagingPath(path, number)) return true;
  }
  return false;
}

// Puts a bundle back that can't be removed without authorization: the user would otherwise miss a complete
// app. A removal that stopped midway can leave the two files of `bundleLooksIntact`, but no valid signature.
void clearStaged(const Path& staged, const Path& path) {
  log("AppUninstaller: clearing a leftover staging path at {}", staged);
  const auto removed = machine().files.removeItem(staged);
  if (removed) return;
  logWarn("AppUninstaller: " + removed.error().localizedDescription);
  if (!bundleLooksIntact(staged) || !ChecksumVerifier::verifyCodeRequirement(staged)) return;
  if (!machine().files.moveItem(staged, path)) return;
  ExistingAppDetector::forgetCachedBundle(path);
  log("AppUninstaller: restored {} to {}", lastPathComponent(path), path);
}

void unregisterFromLaunchServices(const Path& path) {
  const Path& lsregister = machine().paths.lsregister;
  if (!machine().files.isExecutable(lsregister)) return;
  const auto exit = machine().processes.run(lsregister, {"-u", path}, CapturedOutput::none);
  if (!exit) {
    logWarn("AppUninstaller: lsregister -u failed: {}", exit.error().localizedDescription);
    return;
  }
  log("AppUninstaller: lsregister -u {} exited {}", path, exit->status);
}

}  // namespace

void AppUninstaller::clearInterruptedWork() {
  constexpr std::string_view mark = ".kelo-";
  const Path& folder = machine().paths.applications;
  for (const auto& name : machine().files.contentsOfDirectory(folder).value_or(std::vector<std::string>{})) {
    const auto end = name.rfind(mark);
    if (!name.starts_with('.') || end == std::string::npos || end == 0) continue;
    const auto path = joined(folder, name.substr(1, end - 1));
    const auto leftover = joined(folder, name);
    if (isStagingPath(leftover, path)) {
      clearStaged(leftover, path);
    } else {
      Removal::clearLeftovers(path);
    }
  }
}

void Removal::removeStagedRests(const Path& path) const {
  if (!allowAdminEscalation_) return;
  for (int number = 0; number < kStagingCandidates; ++number) {
    const auto staged = stagingPath(path, number);
    if (!machine().files.itemExists(staged)) continue;
    log("AppUninstaller: escalating removal of {} at {}", app_.displayName, staged);
    if (runAsAdministrator(removalCommand(staged)) == AdminOutcome::cancelled) return;
  }
}

bool Removal::restore() {
  if (!bundleLooksIntact(location_)) {
    logError(
        "AppUninstaller: NOT restoring {} — the staged bundle at {} is no longer complete; leaving it staged rather than putting a broken app back into /Applications",
        app_.displayName, location_);
    unregisterFromLaunchServices(path_);
    ExistingAppDetector::forgetCachedBundle(path_);
    return false;
  }
  if (const auto moved = machine().files.moveItem(location_, path_); !moved) {
    logError("AppUninstaller: FAILED to restore {} from {} to {}: {}", app_.displayName, location_, path_,
             moved.error().localizedDescription);
    return false;
  }
  location_ = path_;
  ExistingAppDetector::forgetCachedBundle(path_);
  log("AppUninstaller: restored {} to {}", app_.displayName, path_);
  return true;
}

void Removal::forgetBundle() const {
  unregisterFromLaunchServices(path_);
  if (location_ != path_) unregisterFromLaunchServices(location_);
  ExistingAppDetector::forgetCachedBundle(path_);
  ExistingAppDetector::forgetCachedBundle(location_);
}

UninstallResult Removal::escalatedRemoval() {
  log("AppUninstaller: escalating removal of {} at {}", app_.displayName, location_);
  const auto outcome = runAsAdministrator(removalCommand(location_));
  if (outcome == AdminOutcome::succeeded && !machine().files.itemExists(location_)) {
    log("AppUninstaller: Successfully removed {} from {} with admin privileges", app_.displayName, path_);
    return succeeded();
  }
  if (location_ != path_ && !restore()) return partialRemovalResult();
  return outcome == AdminOutcome::cancelled ? authCancelledResult() : privilegedRemovalFailedResult();
}

UninstallResult Removal::authCancelledResult() const {
  auto result = loggedFailure(
      fmt::format("Cannot remove {0}: admin authorization was cancelled. {0} has been left installed.",
                  app_.displayName));
  result.authCancelled = true;
  return result;
}

// Reported as a denied permission for any reason, also when `rm` succeeded and the path still exists.
UninstallResult Removal::privilegedRemovalFailedResult() const {
  auto result =
      loggedFailure(fmt::format("Cannot remove {}: the privileged removal failed.", app_.displayName));
  result.permissionDenied = true;
  return result;
}

}  // namespace installer
