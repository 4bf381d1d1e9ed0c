// The copy, as the user or as administrator, and its verification.
#include <fmt/format.h>

#include "Installer/Installation.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/Machine.h"
#include "Utils/ChecksumVerifier.h"
#include "Utils/Log.h"

namespace installer {

namespace {

std::optional<FileIdentity> identityOf(const Result<FileAttributes>& item) {
  return item ? std::optional{item->identity} : std::nullopt;
}

bool isLink(const Result<FileAttributes>& item) {
  return item && item->isSymbolicLink;
}

// The Info.plist of the bundle at `path`; empty when it can't be read.
std::string informationAt(const Path& path) {
  const auto file = joined(path, "Contents/Info.plist");
  return readBoundedFile(machine().files, file, kMaximumInformationBytes).value_or("");
}

}  // namespace

Installation::End Installation::copyBundle() const {
  if (removalNeedsAdministrator_) return copyAsAdministrator();
  const auto copied = machine().files.copyItem(source_, destination_);
  if (copied) return std::nullopt;
  if (!isNoWritePermission(copied.error())) return failed(copied.error());
  logWarn("DMGInstaller: Permission denied copying app — will retry with admin privileges");
  logWarn("DMGInstaller: " + copied.error().localizedDescription);
  return copyAsAdministrator();
}

// One command line, so that the escalation needs at most one prompt and stops at the first failing command.
std::string Installation::privilegedCopyCommand() const {
  const SystemPaths& paths = machine().paths;
  const auto destination = shellQuoted(destination_);
  std::string line;
  if (removalNeedsAdministrator_) line = removalCommand(destination_) + " && ";
  line += fmt::format("{} --noqtn {} {}", shellProgram(paths.ditto), shellQuoted(source_), destination);
  const auto user = machine().systemInfo.userIdentifier();
  if (user == 0) return line;
  return line + fmt::format(" && {} -R {}:{} {}", shellProgram(paths.chown), user,
                            machine().systemInfo.groupIdentifier(), destination);
}

Installation::End Installation::copyAsAdministrator() const {
  const auto command = privilegedCopyCommand();
  const auto old = informationAt(destination_);
  log("DMGInstaller: Requesting admin privileges to install {}", app_.displayName);
  const bool succeeded = runAsAdministrator(command) == AdminOutcome::succeeded;
  // A success can be reported although nothing ran. The old copy is also validly signed, so its signature
  // doesn't show this.
  const bool isUntouched =
      !old.empty() && informationAt(destination_) == old && informationAt(source_) != old;
  if (succeeded && !isUntouched) return std::nullopt;
  return InstallResult::failure(
      fmt::format("Admin credentials required to install {}. Installation was cancelled.", app_.displayName));
}

Installation::End Installation::verifyCopy() const {
  // A link is refused, as in `verifySource`: only its target is verified, which can change afterwards.
  FileSystem& files = machine().files;
  const auto copy = files.attributes(destination_);
  const bool isGenuine = !isLink(copy) && ChecksumVerifier::verifyCodeRequirement(destination_);
  const auto verified = files.attributes(destination_);
  const bool isReplaced = identityOf(verified) != identityOf(copy);
  const bool isUnknown = !copy || !verified;
  if (isGenuine && !isLink(verified) && (!isReplaced || isUnknown)) return std::nullopt;
  logError(
      "DMGInstaller: the installed copy at {} does not satisfy the signing requirement — removing it rather than leaving unverified code in /Applications",
      destination_);
  if (isReplaced) {
    log("DMGInstaller: {} is no longer the copy that was made — leaving it alone", destination_);
  } else if (!removeInstalledBundle()) {
    logError(
        "DMGInstaller: could not remove {} — it remains QUARANTINED, so Gatekeeper will still challenge it on launch",
        destination_);
  }
  return InstallResult::failure(
      fmt::format(
          "{} could not be verified after installation, so it was removed. Any previous version was replaced and is gone; download the installer again to reinstall.",
          app_.displayName),
      ErrorCode::signatureFailed);
}

bool Installation::removeInstalledBundle() const {
  const auto removed = machine().files.removeItem(destination_);
  if (removed) return true;
  if (isNoWritePermission(removed.error())) {
    return runAsAdministrator(removalCommand(destination_)) == AdminOutcome::succeeded;
  }
  logWarn("DMGInstaller: could not remove {}: {}", destination_, removed.error().localizedDescription);
  return false;
}

// Failures are ignored: a copy that keeps its quarantine is still installed.
void Installation::removeQuarantine() const {
  const auto exit = machine().processes.run(
      machine().paths.xattr, {"-dr", "com.apple.quarantine", destination_}, CapturedOutput::separate);
  if (!exit) {
    logWarn("DMGInstaller: could not run xattr for {}: {}", destination_, exit.error().localizedDescription);
    return;
  }
  if (exit->status == 0) return;
  log("DMGInstaller: xattr exited {} for {} — the app is installed but may prompt on first launch",
      exit->status, destination_);
  logToolWords("DMGInstaller: xattr", exit->errorOutput);
}

}  // namespace installer
