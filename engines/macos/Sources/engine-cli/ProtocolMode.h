// The mode for graphical shells: a subcommand in, events on standard output, an exit status out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace installer {

// `flags` are the arguments without the program's name.
std::int32_t runProtocolMode(const std::vector<std::string>& flags);

}  // namespace installer
