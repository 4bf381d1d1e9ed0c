#include "Installer/DMGInstaller.h"

#include <fmt/format.h>

#include "Installer/Installation.h"
#include "Installer/RunningInstances.h"
#include "Platform/Machine.h"
#include "Utils/DiskRequirement.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"

namespace installer {

using namespace std::chrono_literals;

InstallResult DMGInstaller::installFromDMG(const Path& dmgPath, const AppInfo& app) {
  return Installation{dmgPath, app}.run();
}

void DMGInstaller::detachDMG(const Path& mountPoint) {
  // Failures are ignored: the result of the install doesn't depend on the detach.
  (void)machine().processes.run(machine().paths.hdiutil, {"detach", mountPoint, "-force", "-quiet"},
                                CapturedOutput::separate);
}

AdminOutcome DMGInstaller::runWithAdminPrivilegesOutcome(const std::string& command) {
  return runAsAdministrator(command);
}

std::optional<std::int64_t> DMGInstaller::volumeFreeBytes(const Path& path) {
  return DiskRequirement::volumeFreeBytes(path);
}

InstallResult Installation::run() {
  terminateRunningApp();
  if (auto end = attach()) return *end;
  if (auto end = chooseBundle()) return *end;
  if (auto end = verifySource()) return *end;

  if (auto end = compareWithInstalled()) return *end;
  if (auto end = clearCopyElsewhere()) return *end;
  mentionOtherVariants();
  if (auto end = testDiskSpace()) return *end;
  if (auto end = clearDestination()) return *end;

  if (auto end = copyBundle()) return *end;
  if (auto end = verifyCopy()) return *end;
  removeQuarantine();
  return finish();
}

void Installation::terminateRunningApp() const {
  const auto request = [](const RunningApplication& application) {
    return fmt::format("{} is running (pid {}) — sending graceful quit", nameOf(application),
                       application.processIdentifier);
  };
  quitRunningInstances(app_.knownBundleIdentifiers(), {.speaker = "DMGInstaller",
                                                       .request = request,
                                                       .lookInterval = 250ms,
                                                       .settlingTime = 1s,
                                                       .settlesAfterEveryWait = false});
}

InstallResult Installation::finish() {
  log("{} installed at {}", app_.displayName, destination_);
  machine().workspace.registerBundle(destination_);
  image_.reset();
  Telemetry::report_to_server("macOS", "install_succeeded", "", std::string{rawValue(app_.id)});
  return InstallResult::makeSuccess(app_.displayName, destination_);
}

InstallResult Installation::failed(const Error& error) const {
  return InstallResult::failure(
      fmt::format("Failed to install {}: {}", app_.displayName, error.localizedDescription));
}

}  // namespace installer
