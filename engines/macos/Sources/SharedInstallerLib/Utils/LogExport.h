// Gathers the engine's logs into one zip archive that a person can send to support: the log files, a manifest
// of what was collected, and a digest of all warnings and errors.
#pragma once

#include <optional>
#include <string>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer::LogExport {

inline constexpr std::string_view errorDomain = "LogExport";  // code: the archiver's exit status

// Returns the archive's full path. Without `outDirectory`, or with an empty one, the archive goes to the
// user's Desktop if there is one, else to the home; a destination that doesn't exist is made.
// Blocks for as long as the archiver runs. An export without any log still succeeds. Fails when the staging
// folder or the destination can't be made or the archiver fails; the staging folder then stays behind
// until the next export.
[[nodiscard]] Result<Path> exportLogs(const std::optional<std::string>& outDirectory);

}  // namespace installer::LogExport
