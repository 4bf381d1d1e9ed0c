#include "Installer/DMGInstaller.h"

#include <fmt/format.h>

#include "Installer/Installation.h"
#include "Installer/RunningInstances.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"

namespace installer {

using namespace std::chrono_literals;

namespace {

std::optional<std::string> versionIn(const Path& bundlePath) {
  const auto bundle = ExistingAppDetector::cachedBundle(bundlePath);
  return bundle ? bundle->infoString("CFBundleShortVersionString") : std::nullopt;
}

}  // namespace

void DMGInstaller::terminateRunningApp(const std::vector<std::string>& knownBundleIdentifiers) {
  const auto request = [](const RunningApplication& application) {
    return fmt::format("{} is running (pid {}) — sending graceful quit", nameOf(application),
                       application.processIdentifier);
  };
  quitRunningInstances(knownBundleIdentifiers, {.speaker = "DMGInstaller",
                                                .request = request,
                                                .lookInterval = 250ms,
                                                .settlingTime = 1s,
                                                .settlesAfterEveryWait = false});
}

InstallResult DMGInstaller::installFromDMG(const Path& dmgPath, const AppInfo& app) {
  terminateRunningApp(app.knownBundleIdentifiers());
  auto image = MountedImage::attach(dmgPath, app);  // detaches on every way out
  if (!image) return InstallResult::failure(image.error());

  auto bundleName = chooseBundle(*image, app);
  if (!bundleName) return bundleName.error();
  InstallInProgress install{.app = app,
                            .bundleName = *bundleName,
                            .source = joined(image->mountPoint(), *bundleName),
                            .destination = joined(machine().paths.applications, *bundleName)};
  if (auto end = verifySource(install)) return *end;

  install.packageVersion = versionIn(install.source);
  install.existing = ExistingAppDetector::detect(app);
  if (auto end = compareWithInstalled(install)) return *end;
  if (auto end = clearCopyElsewhere(install)) return *end;
  mentionOtherVariants(app);
  if (auto end = testDiskSpace(install)) return *end;
  if (auto end = clearDestination(install)) return *end;

  if (auto end = copyBundle(install)) return *end;
  if (auto end = verifyCopy(install)) return *end;
  removeQuarantine(install.destination);
  log(fmt::format("{} installed at {}", app.displayName, install.destination));
  machine().workspace.registerBundle(install.destination);
  image->detach();
  Telemetry::report_to_server("macOS", "install_succeeded", "", std::string{rawValue(app.id)});
  return InstallResult::makeSuccess(app.displayName, install.destination);
}

}  // namespace installer
