// Makes a zip archive of the engine's logs for support: the log files, a manifest of them, and a digest of
// all warnings and errors. Any thread; blocks, and locks the staging folder.
#pragma once

#include <optional>
#include <string>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer::LogExport {

inline constexpr std::string_view kErrorDomain = "LogExport";  // code: the archiver's exit status

// Returns the archive's full path. An absent or empty `outDirectory` is the user's Desktop if it exists, else
// the home folder; a missing destination is created. Blocks while the archiver runs. An export without any
// log succeeds. Fails when the staging folder or the destination can't be created or the archiver fails; the
// staging folder then remains until the next export or change of an app.
[[nodiscard]] Result<Path> exportLogs(const std::optional<std::string>& outDirectory);

// Removes the staging folders of failed and interrupted exports; a running export holds the lock of its
// folder. Failures are ignored.
void clearInterruptedExports();

}  // namespace installer::LogExport
