// Takes a verified disk image and ends with the application bundle among the applications, or with a reason
// why not. Meets what is already on the machine: running copies, other versions, App Store copies, variants
// under other identifiers, a full disk, a folder that may not be written.
//
// A sceptic towards code on disk: the bundle in the image is verified before it is copied, the copy after,
// and a copy that fails is removed again. Static operations only. One install at a time: nothing here guards
// two installs of the same app against each other.
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

class DMGInstaller {
 public:
  using InstallResult = ::installer::InstallResult;
  using AdminOutcome = ::installer::AdminOutcome;

  // Any thread; blocks for as long as the install takes. Off the main thread, the main queue must be served
  // meanwhile, because privileged commands run there. Quits running copies before anything else, also when
  // the install turns out to be a skip. The image is detached on every way out; its file is never deleted.
  static InstallResult installFromDMG(const Path& dmgPath, const AppInfo& app);

  // Forces the volume off. Failures are ignored.
  static void detachDMG(const Path& mountPoint);

  // Is `runAsAdministrator`.
  static AdminOutcome runWithAdminPrivilegesOutcome(const std::string& command);

  // Is `DiskRequirement::volumeFreeBytes`.
  static std::optional<std::int64_t> volumeFreeBytes(const Path& path);
};

}  // namespace installer
