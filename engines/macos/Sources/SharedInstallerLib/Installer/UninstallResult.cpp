#include "Installer/UninstallResult.h"

#include <utility>

namespace installer {

UninstallResult UninstallResult::makeSuccess(const AppInfo& app, bool alreadyAbsent) {
  UninstallResult result{.app = app};
  result.success = true;
  result.alreadyAbsent = alreadyAbsent;
  return result;
}

UninstallResult UninstallResult::makeSkipped(const AppInfo& app, std::string reason) {
  UninstallResult result{.app = app};
  result.skipped = true;
  result.skipReason = std::move(reason);
  return result;
}

UninstallResult UninstallResult::failure(const AppInfo& app, std::string message) {
  UninstallResult result{.app = app};
  result.errorMessage = std::move(message);
  return result;
}

UninstallResult UninstallResult::neverReached(const AppInfo& app) {
  auto result = failure(app, "cancelled");
  result.cancelled = true;
  return result;
}

}  // namespace installer
