#include "Utils/KeloAppProvider.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Base/ProcessWide.h"
#include "Models/Deployment.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"

namespace installer {

namespace {

std::vector<AppInfo> builtInRows() {
  return {
      {.id = AppIdentifier::brenna,
       .displayName = "Kelo Brenna",
       .appBundleName = "Brenna.app",  // alone without the maker's name
       .iconName = "brenna_icon",
       .installerBundleIdentifier = "com.kelo.brenna.mac",
       .otherBundleIdentifiers = {"com.kelo.brenna.mac.fed"},
       .cdnFormat = "dmg",
       .cdnArch = CDNArchScope::perArch,
       .tempFileName = "brenna_installer.dmg",
       .descriptionCode = "app.brenna.desc",
       .webURL = URL::parse(Deployment::brennaWebURL),
       .sizeBytes = 279172874,
       .expansionRatio = 1.85},
      {.id = AppIdentifier::tolvi,
       .displayName = "Kelo Tolvi",
       .appBundleName = "Kelo Tolvi.app",
       .iconName = "tolvi_icon",
       .installerBundleIdentifier = "com.kelo.ktolvimac",
       .otherBundleIdentifiers = {"org.fed.tolvi.mac"},
       .cdnFormat = "dmg",
       .cdnArch = CDNArchScope::universal,
       .tempFileName = "tolvi_installer.dmg",
       .descriptionCode = "app.tolvi.desc",
       .webURL = URL::parse(Deployment::tolviWebURL),
       .sizeBytes = 293601280,
       .expansionRatio = 2.6},
      {.id = AppIdentifier::rulo,
       .displayName = "Kelo Rulo",
       .appBundleName = "Kelo Rulo.app",
       .iconName = "rulo_icon",
       .installerBundleIdentifier = "com.kelo.rulo",
       .otherBundleIdentifiers = {"com.kelo.rulo.fed"},
       .cdnFormat = "dmg",
       .cdnArch = CDNArchScope::universal,
       .tempFileName = "rulo_installer.dmg",
       .descriptionCode = "app.rulo.desc",
       .webURL = URL::parse(Deployment::ruloWebURL),
       .sizeBytes = 116135417,
       .expansionRatio = 1.9},
      {.id = AppIdentifier::galdivane,
       .displayName = "Kelo Galdivane",
       .appBundleName = "Kelo Galdivane.app",
       .iconName = "galdi_icon",
       .installerBundleIdentifier = "com.kelo.galdivane",
       .otherBundleIdentifiers = {},
       .cdnFormat = "dmg",
       .cdnArch = CDNArchScope::perArch,
       .tempFileName = "galdi_installer.dmg",
       .descriptionCode = "app.galdivane.desc",
       .webURL = URL::parse(Deployment::galdivaneWebURL),
       .sizeBytes = 220200960,
       .expansionRatio = 1.75},
  };
}

}  // namespace

const KeloAppProvider& KeloAppProvider::shared() {
  static ProcessWide<KeloAppProvider> instance{
      [] { return std::unique_ptr<KeloAppProvider>{new KeloAppProvider}; }};
  return instance.get();
}

KeloAppProvider::KeloAppProvider() {
  std::vector<std::string_view> excluded;
  for (auto& row : builtInRows()) {
    const auto* const configured = InstallerConfig::config(row.id);
    if (configured != nullptr) {
      row.installerBundleIdentifier = configured->primaryBundleIdentifier;
      row.otherBundleIdentifiers = configured->otherBundleIdentifiers;
    }
    if (configured != nullptr && !configured->included) {
      excluded.push_back(rawValue(row.id));
      continue;
    }
    apps_.push_back(std::move(row));
  }
  if (excluded.empty()) return;
  log(fmt::format("KeloAppProvider: excluded by installer_config.json: {}", fmt::join(excluded, ", ")));
}

const AppInfo* KeloAppProvider::app(AppIdentifier identifier) const {
  const auto row = std::ranges::find_if(
      apps_, [identifier](const AppInfo& each) { return rawValue(each.id) == rawValue(identifier); });
  return row == apps_.end() ? nullptr : &*row;
}

}  // namespace installer
