// The exit status of a run, from the statuses of its apps. Stateless; any thread.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "Models/Vocabulary.h"

namespace installer::RunExitCode {

// The statuses that count as success. They include a copy that was already current and one that was absent.
inline constexpr std::array successStatuses{rawValue(AppStatus::installed), rawValue(AppStatus::updated),
                                            rawValue(AppStatus::uninstalled),
                                            rawValue(AppStatus::alreadyAbsent), rawValue(AppStatus::skipped)};

// One status per app; words outside AppStatus are ignored. `permissionDenied` only turns a full failure into
// a denied permission. A cancelled run without a failure is a partial success, also with `strict` and also
// when nothing succeeded.
ExitCode forRun(std::span<const std::string> statuses, bool strict, bool permissionDenied);

}  // namespace installer::RunExitCode
