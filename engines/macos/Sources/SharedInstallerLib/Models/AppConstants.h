// Values that are fixed when the engine is built.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Base/URL.h"
#include "Models/Vocabulary.h"

namespace installer::AppConstants {

inline constexpr bool telemetryEnabled = false;

namespace Brand {
inline constexpr std::string_view name = "Kelo";
inline constexpr std::string_view installerName = "Kelo Desk Installer";
inline constexpr std::string_view appNameWithoutExtension = "Kelo-Desk-Installer";
}  // namespace Brand

namespace API {
inline constexpr std::string_view reportURLString;
// Always absent: this build has no report address.
inline std::optional<URL> reportURL() {
  return URL::parse(reportURLString);
}
}  // namespace API

namespace Logging {
inline constexpr std::uint64_t maxLogFileSizeBytes = 512000;
inline constexpr std::string_view baseLogFileName = "webinstall.log";
}  // namespace Logging

using installer::ExitCode;

}  // namespace installer::AppConstants

namespace installer {

// The version and the protocol version that shells and log bundles show.
extern const std::string_view kEngineVersion;  // from project() in the top CMakeLists.txt
// Raised only for a change that a shell written for the old number could misread.
inline constexpr std::int64_t kEngineProtocolVersion = 1;

}  // namespace installer
