// A directory at the expected path that is no app any more, left by a removal that stopped half-way.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Installer/AppUninstaller.h"
#include "Platform/Machine.h"
#include "Utils/AppStoreReceipt.h"
#include "Utils/ExistingAppDetector.h"
#include "Utils/Log.h"

namespace installer {

std::optional<UninstallResult> AppUninstaller::removeHusk(const AppInfo& app, bool allowAdminEscalation) {
  const auto path = joined(machine().paths.applications, app.appBundleName);
  if (!machine().files.directoryExists(path)) return std::nullopt;

  ExistingAppDetector::forgetCachedBundle(path);
  const auto bundle = machine().bundles.read(path);
  if (bundle && bundle->bundleIdentifier()) {
    log(fmt::format("AppUninstaller: {} is another app's bundle — leaving it alone", path));
    return std::nullopt;
  }
  if (hasAppStoreReceipt(path)) return std::nullopt;

  logWarn(fmt::format(
      "AppUninstaller: found a husk of {} at {} — a previous removal left it partly deleted; clearing it",
      app.displayName, path));
  terminateRunningApp(app.knownBundleIdentifiers());
  return removeBundle(app, path, allowAdminEscalation);
}

}  // namespace installer
