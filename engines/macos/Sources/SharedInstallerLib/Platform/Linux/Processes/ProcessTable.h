// Facts about processes from /proc. Stateless; any thread.
#pragma once

#include <optional>
#include <sys/types.h>
#include <vector>

#include "Base/Path.h"

namespace installer {

// The effective user's processes, or all for root; without this process.
std::vector<pid_t> visibleProcesses();

// The bundle that `process` runs from: the innermost "X.app" in whose "Contents/MacOS" its executable is,
// or the script that its executable is interpreting. Absent for anything else.
std::optional<Path> bundleOfProcess(pid_t process);

// The innermost bundle in whose "Contents/MacOS" `executable` is, at any depth.
std::optional<Path> bundleOfExecutable(const Path& executable);

}  // namespace installer
