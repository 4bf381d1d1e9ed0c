// The result of one install from a disk image.
#pragma once

#include <optional>
#include <string>

#include "Base/Path.h"

namespace installer {

struct InstallResult {
  bool success = false;  // the requested version, or something at least as new, is in place
  std::optional<std::string> errorMessage = {};  // for a person; on failure only
  std::optional<Path> installedPath = {};        // where the bundle now is; on success only
  bool alreadyCurrent = false;  // nothing was copied: the installed version is the same or newer
  std::optional<std::string> errorCode = {};  // stable code; absent when the failure has none of its own

  static InstallResult failure(std::string message, std::optional<std::string> code = std::nullopt) {
    return {false, std::move(message), std::nullopt, false, std::move(code)};
  }
  static InstallResult makeSuccess(const std::string& /*appName*/, Path path) {
    return {true, std::nullopt, std::move(path), false, std::nullopt};
  }
  static InstallResult makeAlreadyCurrent(Path path) {
    return {true, std::nullopt, std::move(path), true, std::nullopt};
  }
};

}  // namespace installer
