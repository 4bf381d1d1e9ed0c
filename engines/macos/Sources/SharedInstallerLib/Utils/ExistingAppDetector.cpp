#include "Utils/ExistingAppDetector.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Base/Mutex.h"
#include "Base/ProcessWide.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

// Each access is locked: the main queue reads the version of a finished app while the worker reads the
// bundles of the next one.
class BundleCache {
 public:
  static BundleCache& shared() {
    static ProcessWide<BundleCache> instance{[] { return std::make_unique<BundleCache>(); }};
    return instance.get();
  }

  std::shared_ptr<const Bundle> find(const Path& path) {
    const MutexLock lock{mutex_};
    const auto hit = bundles_.find(path);
    return hit == bundles_.end() ? nullptr : hit->second;
  }
  void keep(const Path& path, std::shared_ptr<const Bundle> bundle) {
    const MutexLock lock{mutex_};
    bundles_.insert_or_assign(path, std::move(bundle));
  }
  void erase(const Path& path) {
    const MutexLock lock{mutex_};
    bundles_.erase(path);
  }

 private:
  Mutex mutex_;
  std::map<Path, std::shared_ptr<const Bundle>> bundles_ GUARDED_BY(mutex_);
};

Path expectedPath(const AppInfo& app) {
  return joined(machine().paths.applications, app.appBundleName);
}

std::optional<std::string> bundleVersion(const Path& path) {
  const auto bundle = ExistingAppDetector::cachedBundle(path);
  return bundle ? bundle->infoString("CFBundleShortVersionString") : std::nullopt;
}

DetectedVariant describe(const std::string& identifier, const Path& path) {
  return {identifier, path, bundleVersion(path), hasAppStoreReceipt(path)};
}

std::optional<DetectedVariant> lookupBundleID(const std::string& identifier) {
  const auto path = machine().workspace.applicationPath(identifier);
  if (!path) return std::nullopt;
  if (!path->starts_with(machine().paths.applications + "/")) {
    log("ExistingAppDetector: Ignoring {} — app found outside /Applications/", identifier);
    return std::nullopt;
  }
  if (!machine().files.fileExists(*path)) {
    logWarn(
        "ExistingAppDetector: {} resolved to {} but the bundle no longer exists — treating as not installed",
        identifier, *path);
    BundleCache::shared().erase(*path);
    return std::nullopt;
  }
  return describe(identifier, *path);
}

// Finds a copy that isn't registered yet. A bundle with another identifier at this path isn't the primary.
std::optional<DetectedVariant> lookupExpectedPath(const AppInfo& app) {
  const auto path = expectedPath(app);
  if (!machine().files.fileExists(path)) return std::nullopt;
  const auto bundle = machine().bundles.read(path);
  if (!bundle || bundle->bundleIdentifier() != app.installerBundleIdentifier) return std::nullopt;
  return describe(app.installerBundleIdentifier, path);
}

std::string facts(const DetectedVariant& copy) {
  return fmt::format("{}, version: {}, App Store: {}", copy.path, copy.version.value_or("unknown"),
                     copy.isAppStore);
}

std::optional<DetectedVariant> findPrimary(const AppInfo& app) {
  if (auto registered = lookupBundleID(app.installerBundleIdentifier)) {
    log("ExistingAppDetector: Found {} primary ({}) at {}", app.displayName, app.installerBundleIdentifier,
        facts(*registered));
    return registered;
  }
  if (auto expected = lookupExpectedPath(app)) {
    log("ExistingAppDetector: Found {} primary at expected path {}", app.displayName, facts(*expected));
    return expected;
  }
  log("ExistingAppDetector: {} primary ({}) not installed", app.displayName, app.installerBundleIdentifier);
  return std::nullopt;
}

}  // namespace

AppInstallationStatus ExistingAppDetector::detect(const AppInfo& app) {
  AppInstallationStatus status;
  status.app = app;
  if (const auto primary = findPrimary(app)) {
    status.primaryInstallation = primary->isAppStore ? ExistingInstallationType::appStore(primary->path)
                                                     : ExistingInstallationType::regular(primary->path);
    status.primaryVersion = primary->version;
    status.primaryPath = primary->path;
  }
  for (const auto& identifier : app.otherBundleIdentifiers) {
    auto variant = lookupBundleID(identifier);
    if (!variant) continue;
    log("ExistingAppDetector: Found other variant of {} at {}", app.displayName, facts(*variant));
    status.otherVariants.push_back(*std::move(variant));
  }
  return status;
}

std::map<AppIdentifier, AppInstallationStatus> ExistingAppDetector::detectAll(
    const std::vector<AppInfo>& apps) {
  std::map<AppIdentifier, AppInstallationStatus> statuses;
  for (const auto& app : apps) statuses.insert_or_assign(app.id, detect(app));
  return statuses;
}

std::optional<std::string> ExistingAppDetector::installedVersion(const AppInfo& app,
                                                                 const std::optional<Path>& path) {
  const auto installed = path.value_or(expectedPath(app));
  forgetCachedBundle(installed);
  if (machine().files.fileExists(installed)) return bundleVersion(installed);
  return detect(app).primaryVersion;
}

std::shared_ptr<const Bundle> ExistingAppDetector::cachedBundle(const Path& path) {
  auto& cache = BundleCache::shared();
  if (auto hit = cache.find(path)) return hit;
  auto bundle = machine().bundles.read(path);
  if (bundle) cache.keep(path, bundle);
  return bundle;
}

void ExistingAppDetector::forgetCachedBundle(const Path& path) {
  BundleCache::shared().erase(path);
}

}  // namespace installer
