#include "Installer/RunRules.h"

#include <algorithm>
#include <fmt/format.h>

#include "Base/Text.h"
#include "Utils/KeloAppProvider.h"

namespace installer::RunRules {

std::vector<AppInfo> resolveApps(const std::vector<AppIdentifier>& identifiers) {
  const auto& catalog = KeloAppProvider::shared();
  if (identifiers.empty()) return catalog.allApps();
  std::vector<AppInfo> resolved;
  for (const auto identifier : identifiers) {
    if (const auto* app = catalog.app(identifier)) resolved.push_back(*app);
  }
  return resolved;
}

std::string expiryMessage(const InstallerRetirement& retirement) {
  return fmt::format("This installer expired on {}. Download a current installer from {}.",
                     retirement.expiresOn.value_or("an earlier date"), retirement.downloadURL);
}

bool anyPermissionDenied(std::span<const AppInstallResult> results) {
  return std::ranges::any_of(results, [](const AppInstallResult& result) {
    if (result.success || result.cancelled) return false;
    return lowercased(result.errorMessage.value_or("")).find("permission") != std::string::npos;
  });
}

}  // namespace installer::RunRules
