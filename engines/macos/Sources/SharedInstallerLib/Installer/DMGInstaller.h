// Installs the application bundle of a verified disk image into the applications folder. Handles running
// copies, other versions, App Store copies, variants with other identifiers, a full disk and a folder without
// write permission.
//
// The bundle in the image is verified before it is copied, the copy afterwards, and an invalid copy is
// removed. Static operations only. The caller holds the app's turn (`AppTurn`).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "Base/Path.h"
#include "Installer/PrivilegedRunner.h"
#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"

namespace installer {

// The result of one install from a disk image.
struct InstallResult {
  bool success;                             // the package's version or a newer one is installed
  std::optional<std::string> errorMessage;  // for a person; on failure only
  std::optional<Path> installedPath;        // the bundle's path; on success only
  bool alreadyCurrent;                      // nothing was copied: the installed version is the same or newer
  std::optional<ErrorCode> errorCode;       // stable code; absent when the failure has no code

  static InstallResult failure(std::string message, std::optional<ErrorCode> code = std::nullopt) {
    return {false, std::move(message), std::nullopt, false, code};
  }
  static InstallResult makeSuccess(const std::string& /*appName*/, Path path) {
    return {true, std::nullopt, std::move(path), false, std::nullopt};
  }
  static InstallResult makeAlreadyCurrent(Path path) {
    return {true, std::nullopt, std::move(path), true, std::nullopt};
  }

 private:
  InstallResult(bool isSuccess, std::optional<std::string> message, std::optional<Path> path, bool isCurrent,
                std::optional<ErrorCode> code)
      : success{isSuccess},
        errorMessage{std::move(message)},
        installedPath{std::move(path)},
        alreadyCurrent{isCurrent},
        errorCode{code} {}
};

class DMGInstaller {
 public:
  using InstallResult = ::installer::InstallResult;
  using AdminOutcome = ::installer::AdminOutcome;

  // Any thread; blocks until the install has ended. If the caller isn't the main thread, the main queue must
  // be served meanwhile, because privileged commands run there. Quits running copies first, also when nothing
  // is copied afterwards. The image is always detached; its file is never deleted.
  static InstallResult installFromDMG(const Path& dmgPath, const AppInfo& app);

  // Detaches the volume by force. Failures are ignored.
  static void detachDMG(const Path& mountPoint);

  // Detaches the images that killed engines left attached, of any app, downloaded or of any installer. Only
  // while no other engine works. An image that the user opened isn't detached: its volume isn't hidden.
  static void detachInterrupted();

  // The same as `runAsAdministrator`.
  static AdminOutcome runWithAdminPrivilegesOutcome(const std::string& command);

  // The same as `DiskRequirement::volumeFreeBytes`.
  static std::optional<std::int64_t> volumeFreeBytes(const Path& path);
};

}  // namespace installer
