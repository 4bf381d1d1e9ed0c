// Text that goes into a command line for /bin/sh.
#pragma once

#include <string>
#include <string_view>

#include "Base/Path.h"

namespace installer {

// One word for the shell, whatever it holds: in single quotes, each single quote inside written as '\''.
std::string shellQuoted(std::string_view text);

// A program's path as the first word of a command: as it stands when the shell would read it as such,
// quoted otherwise.
std::string shellProgram(std::string_view path);

// Removes whatever stands at `path`, with all beneath it, asking nothing.
std::string removalCommand(const Path& path);

}  // namespace installer
