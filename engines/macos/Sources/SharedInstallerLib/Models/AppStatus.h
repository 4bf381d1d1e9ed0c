// How one app of a run ended: the words that the wire, the exit code and the summary share.
// Shells and scripts compare them to the letter, so none may ever change its spelling.
#pragma once

#include <string_view>

namespace installer::AppStatus {

inline constexpr std::string_view installed = "installed";
inline constexpr std::string_view updated = "updated";
inline constexpr std::string_view skipped = "skipped";
inline constexpr std::string_view failed = "failed";
inline constexpr std::string_view cancelled = "cancelled";
inline constexpr std::string_view uninstalled = "uninstalled";
inline constexpr std::string_view alreadyAbsent = "already_absent";

}  // namespace installer::AppStatus
