// What is fixed when the engine is built.
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
// Always absent: there is no address to report to.
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

// What this engine says about itself to shells and in log bundles.
extern const std::string_view kEngineVersion;  // of project() in the top CMakeLists.txt
// Rises only when a shell written for the old number could misread the new events.
inline constexpr std::int64_t kEngineProtocolVersion = 1;

}  // namespace installer
