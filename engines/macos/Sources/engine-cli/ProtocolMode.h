// The mode for graphical shells: a subcommand in, events on standard output, an exit status out.
#pragma once

#include <string>
#include <vector>

#include "Models/Vocabulary.h"

namespace installer {

// `flags` are the arguments without the program's name.
ExitCode runProtocolMode(const std::vector<std::string>& flags);

}  // namespace installer
