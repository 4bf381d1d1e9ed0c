// The executable without its machine.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace installer {

// Executes one command line, the program's name first, and returns the exit status for the process. Flushes
// the log. Main thread, with an installed machine; call once.
//
// A worker or the listener may still be running when this returns, so the caller ends the process without
// destroying anything.
std::int32_t runEngineCLI(const std::vector<std::string>& argv);

}  // namespace installer
