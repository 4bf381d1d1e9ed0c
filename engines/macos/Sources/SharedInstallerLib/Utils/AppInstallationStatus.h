// What stands on the machine for one application. Plain values.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Base/Path.h"
#include "Models/AppInfo.h"

namespace installer {

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

}  // namespace installer
