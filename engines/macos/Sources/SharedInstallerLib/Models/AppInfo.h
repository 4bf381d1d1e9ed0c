// One row of the catalog: what the engine knows of an application. A plain value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/Path.h"
#include "Base/URL.h"
#include "Models/AppIdentifier.h"
#include "Models/CDNArchScope.h"

namespace installer {

struct AppInfo {
  AppIdentifier id = AppIdentifier::brenna;
  std::string displayName;                          // for people, and in messages
  std::string appBundleName;                        // the bundle's directory name in the applications folder
  std::string iconName;                             // an asset of the graphical shell
  std::string installerBundleIdentifier;            // the primary one: what this installer installs
  std::vector<std::string> otherBundleIdentifiers;  // other variants: detected, never installed
  std::string cdnFormat;                            // file format in CDN paths
  CDNArchScope cdnArch = CDNArchScope::perArch;
  std::string tempFileName;               // of the download, and of the image beside the installer
  std::string descriptionCode;            // key of a text that the graphical shell holds
  std::optional<URL> webURL;              // product page, unless the configuration names one
  std::optional<std::int64_t> sizeBytes;  // download size while no live figure is known
  double expansionRatio = 1.0;            // package size times this is the installed size

  // The app's segment of CDN paths.
  std::string cdnService() const { return std::string{rawValue(id)}; }

  // The primary identifier, then all others: everything that counts as this app when it runs.
  std::vector<std::string> knownBundleIdentifiers() const;

  // `tempFileName` in the machine's temporary directory.
  Path tempFilePath() const;

  friend bool operator==(const AppInfo&, const AppInfo&) = default;
};

}  // namespace installer
