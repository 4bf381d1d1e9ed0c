// The copy, as the user or as administrator, and the proof of what was copied.
#include <fmt/format.h>

#include "Installer/DMGInstaller.h"
#include "Installer/Installation.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"

namespace installer {

namespace {

// One line, so that the whole escalation costs one prompt at most and stops at the first command that fails.
std::string privilegedCopyCommand(const InstallInProgress& install) {
  const SystemPaths& paths = machine().paths;
  const auto destination = shellQuoted(install.destination);
  std::string line;
  if (install.removalNeedsAdministrator) line = removalCommand(install.destination) + " && ";
  line +=
      fmt::format("{} --noqtn {} {}", shellProgram(paths.ditto), shellQuoted(install.source), destination);
  const auto user = machine().systemInfo.userIdentifier();
  if (user == 0) return line;
  return line + fmt::format(" && {} -R {}:{} {}", shellProgram(paths.chown), user,
                            machine().systemInfo.groupIdentifier(), destination);
}

std::optional<FileIdentity> identityAt(const Path& path) {
  const auto item = machine().files.attributes(path);
  return item ? std::optional{item->identity} : std::nullopt;
}

}  // namespace

DMGInstaller::EndOfInstall DMGInstaller::copyBundle(const InstallInProgress& install) {
  if (install.removalNeedsAdministrator) return copyAsAdministrator(install);
  const auto copied = machine().files.copyItem(install.source, install.destination);
  if (copied) return std::nullopt;
  if (!isNoWritePermission(copied.error())) {
    return InstallResult::failure(fmt::format("Failed to install {}: {}", install.app.displayName,
                                              copied.error().localizedDescription));
  }
  logWarn("DMGInstaller: Permission denied copying app — will retry with admin privileges");
  logWarn("DMGInstaller: " + copied.error().localizedDescription);
  return copyAsAdministrator(install);
}

DMGInstaller::EndOfInstall DMGInstaller::copyAsAdministrator(const InstallInProgress& install) {
  const auto command = privilegedCopyCommand(install);
  log(fmt::format("DMGInstaller: Requesting admin privileges to install {}", install.app.displayName));
  if (runWithAdminPrivilegesOutcome(command) == AdminOutcome::succeeded) return std::nullopt;
  return InstallResult::failure(fmt::format(
      "Admin credentials required to install {}. Installation was cancelled.", install.app.displayName));
}

DMGInstaller::EndOfInstall DMGInstaller::verifyCopy(const InstallInProgress& install) {
  const Path& destination = install.destination;
  const auto copy = identityAt(destination);
  if (ChecksumVerifier::verifyCodeRequirement(destination)) return std::nullopt;
  logError(fmt::format(
      "DMGInstaller: the installed copy at {} does not satisfy the signing requirement — removing it rather than leaving unverified code in /Applications",
      destination));
  if (identityAt(destination) != copy) {
    log(fmt::format("DMGInstaller: {} is no longer the copy that was made — leaving it alone", destination));
  } else if (!removeInstalledBundle(destination)) {
    logError(fmt::format(
        "DMGInstaller: could not remove {} — it remains QUARANTINED, so Gatekeeper will still challenge it on launch",
        destination));
  }
  return InstallResult::failure(
      fmt::format(
          "{} could not be verified after installation, so it was removed. Any previous version was replaced and is gone; download the installer again to reinstall.",
          install.app.displayName),
      ErrorCode::signatureFailed);
}

bool DMGInstaller::removeInstalledBundle(const Path& path) {
  const auto removed = machine().files.removeItem(path);
  if (removed) return true;
  if (isNoWritePermission(removed.error())) {
    return runWithAdminPrivilegesOutcome(removalCommand(path)) == AdminOutcome::succeeded;
  }
  logWarn(fmt::format("DMGInstaller: could not remove {}: {}", path, removed.error().localizedDescription));
  return false;
}

// A copy whose quarantine stays is installed all the same.
void DMGInstaller::removeQuarantine(const Path& destination) {
  const auto exit = machine().processes.run(
      machine().paths.xattr, {"-dr", "com.apple.quarantine", destination}, CapturedOutput::separate);
  if (!exit) {
    logWarn(fmt::format("DMGInstaller: could not run xattr for {}: {}", destination,
                        exit.error().localizedDescription));
    return;
  }
  if (exit->status == 0) return;
  log(fmt::format(
      "DMGInstaller: xattr exited {} for {} — the app is installed but may prompt on first launch",
      exit->status, destination));
  logToolWords("DMGInstaller: xattr", exit->errorOutput);
}

}  // namespace installer
