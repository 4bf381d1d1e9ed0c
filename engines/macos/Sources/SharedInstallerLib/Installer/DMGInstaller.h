// Takes a verified disk image and ends with the application bundle among the applications, or with a reason
// why not. Meets what is already on the machine: running copies, other versions, App Store copies, variants
// under other identifiers, a full disk, a folder that may not be written.
//
// A sceptic towards code on disk: the bundle in the image is verified before it is copied, the copy after,
// and a copy that fails is removed again. Static operations only. One install at a time: nothing here guards
// two installs of the same app against each other.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "Base/Path.h"
#include "Installer/PrivilegedRunner.h"
#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"

namespace installer {

// The result of one install from a disk image.
struct InstallResult {
  bool success = false;  // the requested version, or something at least as new, is in place
  std::optional<std::string> errorMessage = {};  // for a person; on failure only
  std::optional<Path> installedPath = {};        // where the bundle now is; on success only
  bool alreadyCurrent = false;              // nothing was copied: the installed version is the same or newer
  std::optional<ErrorCode> errorCode = {};  // stable code; absent when the failure has none of its own

  static InstallResult failure(std::string message, std::optional<ErrorCode> code = std::nullopt) {
    return {false, std::move(message), std::nullopt, false, code};
  }
  static InstallResult makeSuccess(const std::string& /*appName*/, Path path) {
    return {true, std::nullopt, std::move(path), false, std::nullopt};
  }
  static InstallResult makeAlreadyCurrent(Path path) {
    return {true, std::nullopt, std::move(path), true, std::nullopt};
  }
};

class MountedImage;
struct InstallInProgress;

class DMGInstaller {
 public:
  using InstallResult = ::installer::InstallResult;
  using AdminOutcome = ::installer::AdminOutcome;

  // Any thread; blocks for as long as the install takes. Off the main thread, the main queue must be served
  // meanwhile, because privileged commands run there. Quits running copies before anything else, also when
  // the install turns out to be a skip. The image is detached on every way out; its file is never deleted.
  static InstallResult installFromDMG(const Path& dmgPath, const AppInfo& app);

  // Forces the volume off. Whether that worked is nobody's business.
  static void detachDMG(const Path& mountPoint);

  // Runs one complete line for /bin/sh as administrator, asking for the password at most once per burst:
  // the script object that the authorization hangs on lives as long as the process. Any thread; everything
  // runs on the main thread, one command at a time, and the caller blocks until its end.
  // Paths in the line are already quoted by the caller.
  static AdminOutcome runWithAdminPrivilegesOutcome(const std::string& command);

  // Bytes free on the volume of `path`; absent means unknown.
  static std::optional<std::int64_t> volumeFreeBytes(const Path& path);

 private:
  // A step that ends the install gives its result; one that lets it go on gives nothing.
  using EndOfInstall = std::optional<InstallResult>;

  // Asks every instance under these identifiers to quit, waits up to five seconds, forces what remains.
  static void terminateRunningApp(const std::vector<std::string>& knownBundleIdentifiers);

  // From image to chosen bundle.
  static std::expected<std::string, InstallResult> chooseBundle(const MountedImage& image,
                                                                const AppInfo& app);
  static EndOfInstall verifySource(const InstallInProgress& install);

  // What is already there.
  static EndOfInstall compareWithInstalled(const InstallInProgress& install);
  static EndOfInstall clearCopyElsewhere(const InstallInProgress& install);
  static void mentionOtherVariants(const AppInfo& app);
  static EndOfInstall testDiskSpace(const InstallInProgress& install);
  static EndOfInstall clearDestination(InstallInProgress& install);
  static EndOfInstall makeRoomBesideAppStoreCopy(InstallInProgress& install);

  // The copy.
  static EndOfInstall copyBundle(const InstallInProgress& install);
  static EndOfInstall copyAsAdministrator(const InstallInProgress& install);
  static EndOfInstall verifyCopy(const InstallInProgress& install);
  static bool removeInstalledBundle(const Path& path);
  static void removeQuarantine(const Path& destination);
};

}  // namespace installer
