// One row of the catalog: the fixed facts of an application. A plain value.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Path.h"
#include "Base/URL.h"

namespace installer {

// The apps of protocol/catalog.json. An excluded application keeps its case; `AppProvider` decides whether
// this build offers it.
enum class AppIdentifier {
#include "AppIdentifiers.inc"
};

// The identifier in the command line, events, configuration keys and CDN paths.
std::string_view rawValue(AppIdentifier identifier);

namespace AppIdentifiers {

// In the order of the catalog.
inline constexpr auto allCases = [] {
  using enum AppIdentifier;
  return std::array{
#include "AppIdentifiers.inc"
  };
}();

// Exact and case-sensitive; a lenient caller trims and lowercases first.
std::optional<AppIdentifier> fromRawValue(std::string_view text);

}  // namespace AppIdentifiers

// Whether the CDN holds one package of an app per processor, or one for both.
enum class CDNArchScope { perArch, universal };

struct AppInfo {
  AppIdentifier id = AppIdentifier::brenna;
  std::string displayName;                          // for people, and in messages
  std::string appBundleName;                        // the bundle's directory name in the applications folder
  std::string iconName;                             // an asset of the graphical shell
  std::string installerBundleIdentifier;            // the primary one, which this installer installs
  std::vector<std::string> otherBundleIdentifiers;  // other variants: detected, never installed
  std::string cdnFormat;                            // file format in CDN paths
  CDNArchScope cdnArch = CDNArchScope::perArch;
  std::string tempFileName;               // of the download, and of the image beside the installer
  std::string descriptionCode;            // key of a text in the graphical shell
  std::optional<URL> webURL;              // product page, unless the configuration names one
  std::optional<std::int64_t> sizeBytes;  // download size until a live figure is known
  double expansionRatio = 1.0;            // installed size divided by package size

  // The app's segment of CDN paths.
  std::string cdnService() const { return std::string{rawValue(id)}; }

  // The primary identifier, then all others. A process with any of them counts as this app.
  std::vector<std::string> knownBundleIdentifiers() const;

  // `tempFileName` in the machine's temporary directory.
  Path tempFilePath() const;

  friend bool operator==(const AppInfo&, const AppInfo&) = default;
};

// For messages, in the order of `apps`: "brenna, tolvi". Any thread.
std::string identifierList(const std::vector<AppInfo>& apps);

// A source of catalog rows. Any thread.
class AppProvider {
 public:
  virtual ~AppProvider() = default;

  // The same rows at every call, in catalog order.
  virtual const std::vector<AppInfo>& allApps() const = 0;

  // Null when this build doesn't offer the app. The row belongs to the provider.
  virtual const AppInfo* app(AppIdentifier identifier) const = 0;
};

}  // namespace installer
