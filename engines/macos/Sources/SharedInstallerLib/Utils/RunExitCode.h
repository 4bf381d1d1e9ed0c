// From the outcomes of a run to the exit status that a script acts on.
// Stateless; any thread.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "Models/Vocabulary.h"

namespace installer::RunExitCode {

// The words that count as success. A copy that was already current, and one that was never there, are fine.
inline constexpr std::array successStatuses{rawValue(AppStatus::installed), rawValue(AppStatus::updated),
                                            rawValue(AppStatus::uninstalled),
                                            rawValue(AppStatus::alreadyAbsent), rawValue(AppStatus::skipped)};

// One status per app; words that aren't of AppStatus count for nothing. `permissionDenied` only turns a full
// failure into a denied permission. A cancelled run without a failure is a partial success, also under
// `strict` and also when nothing succeeded.
ExitCode forRun(std::span<const std::string> statuses, bool strict, bool permissionDenied);

}  // namespace installer::RunExitCode
