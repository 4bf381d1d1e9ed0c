// The existing copies, and their treatment before the copy.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Installer/Installation.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/Machine.h"
#include "Utils/DiskRequirement.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"
#include "Utils/VersionComparison.h"

namespace installer {

namespace {

constexpr std::int64_t kMegabyte = 1'000'000;

std::optional<std::string> versionIn(const Path& bundlePath) {
  const auto bundle = ExistingAppDetector::cachedBundle(bundlePath);
  return bundle ? bundle->infoString("CFBundleShortVersionString") : std::nullopt;
}

// "Kelo Rulo.app" -> "Kelo Rulo 2.app", or the first higher number without an item.
std::string freeNumberedName(const std::string& bundleName) {
  std::string base = bundleName;
  for (auto at = base.find(".app"); at != std::string::npos; at = base.find(".app", at)) base.erase(at, 4);
  for (int number = 2;; ++number) {
    auto name = fmt::format("{} {}.app", base, number);
    if (!machine().files.itemExists(joined(machine().paths.applications, name))) return name;
  }
}

// The bytes that the removal of the primary copy frees; 0 for a link, whose target stays.
std::int64_t reclaimableBytes(const AppInstallationStatus& existing) {
  if (existing.primaryInstallation.isAppStore() || !existing.primaryPath) return 0;
  if (machine().files.isSymbolicLink(*existing.primaryPath)) return 0;
  return DiskRequirement::directorySize(*existing.primaryPath).value_or(0);
}

}  // namespace

Installation::End Installation::compareWithInstalled() {
  const auto package = versionIn(source_);
  existing_ = ExistingAppDetector::detect(app_);
  const auto& installed = existing_.primaryVersion;
  if (!installed || !package) return std::nullopt;
  const std::string& name = app_.displayName;

  const auto order = compareVersion(*package, *installed);
  if (order == ComparisonResult::same) {
    log("DMGInstaller: {} v{} is already installed (same version) — skipping", name, *installed);
  } else if (order == ComparisonResult::ascending) {
    log("DMGInstaller: {} v{} is newer than installer v{} — skipping downgrade", name, *installed, *package);
  } else {
    log("DMGInstaller: Upgrading {} from v{} to v{}", name, *installed, *package);
    return std::nullopt;
  }
  return InstallResult::makeAlreadyCurrent(existing_.primaryPath.value_or(destination_));
}

Installation::End Installation::clearCopyElsewhere() const {
  const auto path = machine().workspace.applicationPath(app_.installerBundleIdentifier);
  if (!path || *path == destination_) return std::nullopt;
  if (!path->starts_with(machine().paths.applications + "/")) return std::nullopt;

  log("DMGInstaller: Found existing {} at different path: {} (bundle ID: {})", app_.displayName, *path,
      app_.installerBundleIdentifier);
  if (hasAppStoreReceipt(*path)) {
    return InstallResult::failure(fmt::format(
        "{} is installed from the Mac App Store at {}. Please remove it from Launchpad first, then retry.",
        app_.displayName, *path));
  }
  log("DMGInstaller: Removing existing copy at {}", *path);
  // Failures are ignored: the other copy doesn't affect the new one.
  (void)machine().files.removeItem(*path);
  return std::nullopt;
}

void Installation::mentionOtherVariants() const {
  for (const std::string& identifier : app_.otherBundleIdentifiers) {
    if (!machine().workspace.applicationPath(identifier)) continue;
    log("DMGInstaller: Other variant of {} found (bundle ID: {}) — coexisting", app_.displayName, identifier);
  }
}

Installation::End Installation::testDiskSpace() const {
  const auto needed = DiskRequirement::directorySize(source_);
  const auto free = DiskRequirement::volumeFreeBytes(machine().paths.applications);
  if (!needed || !free) return std::nullopt;
  const std::int64_t reclaimable = reclaimableBytes(existing_);
  const std::int64_t available = *free + reclaimable;
  if (available >= *needed) return std::nullopt;

  logError("DMGInstaller: Not enough space for {}: needs {} bytes, {} free + {} reclaimable — short by {}",
           app_.displayName, *needed, *free, reclaimable, *needed - available);
  return InstallResult::failure(
      fmt::format("Not enough disk space to install {}: {} MB required, {} MB available.", app_.displayName,
                  *needed / kMegabyte, available / kMegabyte));
}

Installation::End Installation::clearDestination() {
  FileSystem& files = machine().files;
  if (!files.itemExists(destination_)) return std::nullopt;
  // A link is replaced for any target; the target isn't changed.
  if (!files.isSymbolicLink(destination_) && hasAppStoreReceipt(destination_)) {
    return installBesideAppStoreCopy();
  }

  const auto removed = files.removeItem(destination_);
  if (removed) return std::nullopt;
  if (!isNoWritePermission(removed.error())) {
    return InstallResult::failure(fmt::format("Failed to remove existing {}: {}", app_.displayName,
                                              removed.error().localizedDescription));
  }
  logWarn("DMGInstaller: Permission denied removing existing app — will retry with admin privileges");
  logWarn("DMGInstaller: " + removed.error().localizedDescription);
  removalNeedsAdministrator_ = true;
  return std::nullopt;
}

Installation::End Installation::installBesideAppStoreCopy() {
  const auto bundle = machine().bundles.read(destination_);
  const auto identifier = bundle ? bundle->bundleIdentifier() : std::nullopt;
  if (identifier == app_.installerBundleIdentifier) {
    return InstallResult::failure(fmt::format(
        "{} is installed from the Mac App Store. Please remove it from Launchpad first, then retry.",
        app_.displayName));
  }
  const auto name = freeNumberedName(bundleName_);
  log("DMGInstaller: App Store variant at {} (bundle ID: {}). Installing as {} for coexistence.",
      destination_, identifier.value_or("unknown"), name);
  destination_ = joined(machine().paths.applications, name);
  return std::nullopt;
}

}  // namespace installer
