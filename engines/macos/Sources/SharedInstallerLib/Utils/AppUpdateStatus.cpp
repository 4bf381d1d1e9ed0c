#include "Utils/AppUpdateStatus.h"

#include "Utils/VersionComparison.h"

namespace installer {

bool AppUpdateStatus::updateAvailable(const std::optional<std::string>& version) const {
  if (!isInstalled || !installedVersion || !version) return false;
  return compareVersion(*installedVersion, *version) == ComparisonResult::ascending;
}

std::optional<std::string> AppUpdateStatus::source() const {
  if (!isInstalled) return std::nullopt;
  return isAppStore ? "appstore" : "direct";
}

}  // namespace installer
