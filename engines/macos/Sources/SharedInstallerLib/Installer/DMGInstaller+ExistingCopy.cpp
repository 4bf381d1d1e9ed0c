// What already stands on the machine, and what has to happen to it before the copy.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Installer/DMGInstaller.h"
#include "Installer/Installation.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/Machine.h"
#include "Utils/DiskRequirement.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"
#include "Utils/VersionComparison.h"

namespace installer {

namespace {

constexpr std::int64_t megabyte = 1'000'000;

// "Kelo Rulo.app" -> "Kelo Rulo 2.app", or the first higher number that is free.
std::string freeNumberedName(const std::string& bundleName) {
  std::string base = bundleName;
  for (auto at = base.find(".app"); at != std::string::npos; at = base.find(".app", at)) base.erase(at, 4);
  for (int number = 2;; ++number) {
    auto name = fmt::format("{} {}.app", base, number);
    if (!machine().files.itemExists(joined(machine().paths.applications, name))) return name;
  }
}

// What the removal of the primary copy will give back. Of a link only the link goes.
std::int64_t reclaimableBytes(const AppInstallationStatus& existing) {
  if (existing.primaryInstallation.isAppStore() || !existing.primaryPath) return 0;
  if (machine().files.isSymbolicLink(*existing.primaryPath)) return 0;
  return DiskRequirement::directorySize(*existing.primaryPath).value_or(0);
}

}  // namespace

DMGInstaller::EndOfInstall DMGInstaller::compareWithInstalled(const InstallInProgress& install) {
  const auto& installed = install.existing.primaryVersion;
  const auto& package = install.packageVersion;
  if (!installed || !package) return std::nullopt;
  const std::string& name = install.app.displayName;

  const auto order = compareVersion(*package, *installed);
  if (order == ComparisonResult::same) {
    log(fmt::format("DMGInstaller: {} v{} is already installed (same version) — skipping", name, *installed));
  } else if (order == ComparisonResult::ascending) {
    log(fmt::format("DMGInstaller: {} v{} is newer than installer v{} — skipping downgrade", name, *installed,
                    *package));
  } else {
    log(fmt::format("DMGInstaller: Upgrading {} from v{} to v{}", name, *installed, *package));
    return std::nullopt;
  }
  return InstallResult::makeAlreadyCurrent(install.existing.primaryPath.value_or(install.destination));
}

DMGInstaller::EndOfInstall DMGInstaller::clearCopyElsewhere(const InstallInProgress& install) {
  const AppInfo& app = install.app;
  const auto path = machine().workspace.applicationPath(app.installerBundleIdentifier);
  if (!path || *path == install.destination) return std::nullopt;
  if (!path->starts_with(machine().paths.applications + "/")) return std::nullopt;

  log(fmt::format("DMGInstaller: Found existing {} at different path: {} (bundle ID: {})", app.displayName,
                  *path, app.installerBundleIdentifier));
  if (hasAppStoreReceipt(*path)) {
    return InstallResult::failure(fmt::format(
        "{} is installed from the Mac App Store at {}. Please remove it from Launchpad first, then retry.",
        app.displayName, *path));
  }
  log(fmt::format("DMGInstaller: Removing existing copy at {}", *path));
  // A copy that can't be removed does no harm to the new one.
  (void)machine().files.removeItem(*path);
  return std::nullopt;
}

void DMGInstaller::mentionOtherVariants(const AppInfo& app) {
  for (const std::string& identifier : app.otherBundleIdentifiers) {
    if (!machine().workspace.applicationPath(identifier)) continue;
    log(fmt::format("DMGInstaller: Other variant of {} found (bundle ID: {}) — coexisting", app.displayName,
                    identifier));
  }
}

DMGInstaller::EndOfInstall DMGInstaller::testDiskSpace(const InstallInProgress& install) {
  const auto needed = DiskRequirement::directorySize(install.source);
  const auto free = volumeFreeBytes(machine().paths.applications);
  if (!needed || !free) return std::nullopt;
  const std::int64_t reclaimable = reclaimableBytes(install.existing);
  const std::int64_t available = *free + reclaimable;
  if (available >= *needed) return std::nullopt;

  logError(fmt::format(
      "DMGInstaller: Not enough space for {}: needs {} bytes, {} free + {} reclaimable — short by {}",
      install.app.displayName, *needed, *free, reclaimable, *needed - available));
  return InstallResult::failure(
      fmt::format("Not enough disk space to install {}: {} MB required, {} MB available.",
                  install.app.displayName, *needed / megabyte, available / megabyte));
}

DMGInstaller::EndOfInstall DMGInstaller::clearDestination(InstallInProgress& install) {
  FileSystem& files = machine().files;
  if (!files.itemExists(install.destination)) return std::nullopt;
  // A link is replaced, whatever it leads to; its target stays as it is.
  if (!files.isSymbolicLink(install.destination) && hasAppStoreReceipt(install.destination)) {
    return makeRoomBesideAppStoreCopy(install);
  }

  const auto removed = files.removeItem(install.destination);
  if (removed) return std::nullopt;
  if (!isNoWritePermission(removed.error())) {
    return InstallResult::failure(fmt::format("Failed to remove existing {}: {}", install.app.displayName,
                                              removed.error().localizedDescription));
  }
  logWarn("DMGInstaller: Permission denied removing existing app — will retry with admin privileges");
  logWarn("DMGInstaller: " + removed.error().localizedDescription);
  install.removalNeedsAdministrator = true;
  return std::nullopt;
}

DMGInstaller::EndOfInstall DMGInstaller::makeRoomBesideAppStoreCopy(InstallInProgress& install) {
  const AppInfo& app = install.app;
  const auto bundle = machine().bundles.read(install.destination);
  const auto identifier = bundle ? bundle->bundleIdentifier() : std::nullopt;
  if (identifier == app.installerBundleIdentifier) {
    return InstallResult::failure(fmt::format(
        "{} is installed from the Mac App Store. Please remove it from Launchpad first, then retry.",
        app.displayName));
  }
  const auto name = freeNumberedName(install.bundleName);
  log(fmt::format("DMGInstaller: App Store variant at {} (bundle ID: {}). Installing as {} for coexistence.",
                  install.destination, identifier.value_or("unknown"), name));
  install.destination = joined(machine().paths.applications, name);
  return std::nullopt;
}

std::optional<std::int64_t> DMGInstaller::volumeFreeBytes(const Path& path) {
  if (const auto capacity = machine().files.volumeAvailableCapacity(path)) return capacity;
  return machine().files.fileSystemFreeSize(path);
}

}  // namespace installer
