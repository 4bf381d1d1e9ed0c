// What already stands on the machine for an application. Reads only.
// Any thread. Keeps the bundles that it read; no answer of `detect` is kept.
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

// What stands on the machine for one application. Plain values.
// Whether the primary copy is there, and where it came from.
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

// One installed copy.
struct DetectedVariant {
  std::string bundleIdentifier;  // under which the copy was found
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

// What makes a copy an App Store copy: the receipt's existence. Its content is never read.
inline bool hasAppStoreReceipt(const Path& bundlePath) {
  return machine().files.fileExists(joined(bundlePath, "Contents/_MASReceipt/receipt"));
}

}  // namespace installer

namespace installer::ExistingAppDetector {

// The primary copy (as registered, else at its expected place) and the other variants (as registered).
AppInstallationStatus detect(const AppInfo& app);

// `detect` for each, in order; of an app named twice the later answer stands.
std::map<AppIdentifier, AppInstallationStatus> detectAll(const std::vector<AppInfo>& apps);

// The version on disk now: at `path`, by default the expected place; when nothing stands there, that of the
// primary copy that `detect` finds.
std::optional<std::string> installedVersion(const AppInfo& app, const std::optional<Path>& path);

// The bundle at `path` as it was when it was first read; null when none is there.
std::shared_ptr<const Bundle> cachedBundle(const Path& path);

// The next read of `path` is of the disk. For whoever changes a bundle.
void forgetCachedBundle(const Path& path);

}  // namespace installer::ExistingAppDetector
