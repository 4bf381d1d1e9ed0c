// How one app of a run ended, in the words of the wire.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Models/EngineVersion.h"

namespace installer {

// The human text of a failure is deliberately missing: it stays in the log file, and a shell words the
// failure from `errorCode`.
struct AppResultEvent {
  std::int64_t v = kEngineProtocolVersion;
  std::string type = "app-result";
  std::string app;     // raw value of an AppIdentifier
  std::string status;  // one of AppStatus
  std::optional<std::string> errorCode;
  std::optional<std::string> installedPath;
  std::optional<std::string> installedVersion;

  friend bool operator==(const AppResultEvent&, const AppResultEvent&) = default;
};

}  // namespace installer
