// The unattended mode: a log, a summary in it, and a deterministic exit status.
#pragma once

#include <string>
#include <vector>

#include "Models/Vocabulary.h"

namespace installer {

// `argv` is the whole argument vector; `flags` is the same without the program's name.
ExitCode runSilentMode(const std::vector<std::string>& argv, const std::vector<std::string>& flags);

}  // namespace installer
