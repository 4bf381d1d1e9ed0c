// Starts application bundles. Blocks until the application runs or can't be started.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

// The bundle's main executable, as Info.plist names it: a plain name in Contents/MacOS.
OrReason<std::filesystem::path> mainExecutable(const std::filesystem::path& bundle);

// Starts the program, by its absolute path, in a session of its own, without arguments, with nothing on its
// streams and "/" as its folder, which becomes this process's folder too. It outlives this process.
OrReason<> launchDetached(const std::filesystem::path& program);

}  // namespace lab
