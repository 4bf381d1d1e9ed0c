// The fixed words of the wire that the engine's own floor speaks.
// A shell compares them to the letter, so none may ever change its spelling.
#pragma once

#include <string_view>

namespace installer {

namespace EventLevel {
inline constexpr std::string_view info = "info";
inline constexpr std::string_view warn = "warn";
inline constexpr std::string_view error = "error";
}  // namespace EventLevel

namespace ErrorCode {
inline constexpr std::string_view networkUnavailable = "NETWORK_UNAVAILABLE";
inline constexpr std::string_view installFailed = "INSTALL_FAILED";
inline constexpr std::string_view notCompatible = "NOT_COMPATIBLE";
inline constexpr std::string_view uninstallFailed = "UNINSTALL_FAILED";
inline constexpr std::string_view uninstallPermissionDenied = "UNINSTALL_PERMISSION_DENIED";
inline constexpr std::string_view uninstallAuthCancelled = "UNINSTALL_AUTH_CANCELLED";
inline constexpr std::string_view skipped = "SKIPPED";
inline constexpr std::string_view unknown = "UNKNOWN";
}  // namespace ErrorCode

}  // namespace installer
