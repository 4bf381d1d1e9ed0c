// Starts application bundles. Blocks until the application runs or can't be started.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

// The bundle's main executable, as Info.plist names it: a plain name in Contents/MacOS.
OrReason<std::filesystem::path> mainExecutable(const std::filesystem::path& bundle);

// Starts the program, by its absolute path, in its own session, without arguments, with /dev/null as its
// streams and "/" as its working directory, which also becomes this process's. The program outlives this
// process.
OrReason<> launchDetached(const std::filesystem::path& program);

}  // namespace lab
