#include "Utils/KeloAppProvider.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Base/ProcessWide.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"

namespace installer {

namespace {

std::vector<AppInfo> builtInRows() {
  return {
#include "AppInfos.inc"
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
  log("KeloAppProvider: excluded by installer_config.json: {}", fmt::join(excluded, ", "));
}

const AppInfo* KeloAppProvider::app(AppIdentifier identifier) const {
  const auto row = std::ranges::find_if(
      apps_, [identifier](const AppInfo& each) { return rawValue(each.id) == rawValue(identifier); });
  return row == apps_.end() ? nullptr : &*row;
}

}  // namespace installer
