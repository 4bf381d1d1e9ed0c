// The unattended mode: a log, a summary in it, and a deterministic exit status.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace installer {

// `argv` is the whole vector; `flags` is the same without the program's name.
std::int32_t runSilentMode(const std::vector<std::string>& argv, const std::vector<std::string>& flags);

}  // namespace installer
