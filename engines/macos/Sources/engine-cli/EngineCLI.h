// The whole of the executable but for the machine that it runs on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace installer {

// Serves one command line, the program's name first, and gives the exit status that the process is to end
// with. Everything that was logged is written by then. Main thread, with a machine installed; call once.
//
// A worker or the listener may still be running when this returns, so the caller ends the process without
// destroying anything.
std::int32_t runEngineCLI(const std::vector<std::string>& argv);

}  // namespace installer
