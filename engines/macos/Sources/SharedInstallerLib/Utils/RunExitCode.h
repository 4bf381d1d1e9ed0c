// From the outcomes of a run to the exit status that a script acts on.
// Stateless; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// How one app of a run ended: the words that the wire, the exit code and the summary share.
// Shells and scripts compare them to the letter, so none may ever change its spelling.
namespace installer::AppStatus {

inline constexpr std::string_view installed = "installed";
inline constexpr std::string_view updated = "updated";
inline constexpr std::string_view skipped = "skipped";
inline constexpr std::string_view failed = "failed";
inline constexpr std::string_view cancelled = "cancelled";
inline constexpr std::string_view uninstalled = "uninstalled";
inline constexpr std::string_view alreadyAbsent = "already_absent";

}  // namespace installer::AppStatus

namespace installer::RunExitCode {

// The words that count as success. A copy that was already current, and one that was never there, are fine.
inline constexpr std::array<std::string_view, 5> successStatuses{
    AppStatus::installed, AppStatus::updated, AppStatus::uninstalled, AppStatus::alreadyAbsent,
    AppStatus::skipped};

// One status per app; words that aren't of AppStatus count for nothing. `permissionDenied` only turns a full
// failure into a denied permission. A cancelled run without a failure is a partial success, also under
// `strict` and also when nothing succeeded.
std::int32_t forRun(std::span<const std::string> statuses, bool strict, bool permissionDenied);

}  // namespace installer::RunExitCode
