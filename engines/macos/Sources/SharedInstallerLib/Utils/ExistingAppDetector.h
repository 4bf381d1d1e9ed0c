// Detects the installed copies of an application. Changes nothing on disk.
// Any thread. Caches the bundles that it reads, but no result of `detect`.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Base/Path.h"
#include "Models/AppInfo.h"
#include "Platform/Bundles.h"
#include "Platform/Machine.h"

namespace installer {

// Whether the primary copy is installed, and its origin. A plain value.
struct ExistingInstallationType {
  enum class Kind {
    none,     // no primary copy
    regular,  // installed directly
    appStore  // carries an App Store receipt
  };

  Kind kind = Kind::none;
  Path path;  // empty for `none`

  static ExistingInstallationType none() { return {}; }
  static ExistingInstallationType regular(Path path) { return {Kind::regular, std::move(path)}; }
  static ExistingInstallationType appStore(Path path) { return {Kind::appStore, std::move(path)}; }

  bool isInstalled() const { return kind != Kind::none; }
  bool isAppStore() const { return kind == Kind::appStore; }

  friend bool operator==(const ExistingInstallationType&, const ExistingInstallationType&) = default;
};

// One installed copy. A plain value.
struct DetectedVariant {
  std::string bundleIdentifier;  // the identifier that found the copy
  Path path;
  std::optional<std::string> version;  // absent when the bundle's information can't be read
  bool isAppStore = false;

  friend bool operator==(const DetectedVariant&, const DetectedVariant&) = default;
};

struct AppInstallationStatus {
  AppInfo app;
  ExistingInstallationType primaryInstallation;
  std::optional<std::string> primaryVersion;   // absent for `none`, and when unreadable
  std::optional<Path> primaryPath;             // absent for `none`
  std::vector<DetectedVariant> otherVariants;  // in the order of `app.otherBundleIdentifiers`
};

// A copy with a receipt is an App Store copy. The receipt's content is never read.
inline bool hasAppStoreReceipt(const Path& bundlePath) {
  return machine().files.fileExists(joined(bundlePath, "Contents/_MASReceipt/receipt"));
}

}  // namespace installer

namespace installer::ExistingAppDetector {

// The primary copy (registered, else at its expected path) and the other variants (registered only).
AppInstallationStatus detect(const AppInfo& app);

// `detect` for each app, in order; the later result replaces the earlier one of an app named twice.
std::map<AppIdentifier, AppInstallationStatus> detectAll(const std::vector<AppInfo>& apps);

// The version on disk now of the bundle at `path`, which defaults to the expected path; when that doesn't
// exist, the version of the primary copy that `detect` finds.
std::optional<std::string> installedVersion(const AppInfo& app, const std::optional<Path>& path);

// The bundle at `path` as it was when it was first read; null when there is none.
std::shared_ptr<const Bundle> cachedBundle(const Path& path);

// The next read of `path` reads the disk. Call this after changing a bundle.
void forgetCachedBundle(const Path& path);

}  // namespace installer::ExistingAppDetector
