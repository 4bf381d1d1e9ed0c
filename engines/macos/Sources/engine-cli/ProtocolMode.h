// The mode for graphical shells: executes a subcommand and writes events to standard output.
#pragma once

#include <string>
#include <vector>

#include "Models/Vocabulary.h"

namespace installer {

// `flags` are the arguments without the program's name.
ExitCode runProtocolMode(const std::vector<std::string>& flags);

}  // namespace installer
