// What a program prints, taken while it runs, so that a talkative one never blocks.
#pragma once

#include <string>

#include "Base/POSIX/FileDescriptor.h"

namespace installer {

// Gives what comes out of the reading ends, as `KeptOutput` keeps it, until both streams have ended, or the
// program has ended and they have fallen silent: a descendant that outlives it with its output open is not
// waited for. An absent reading end is a stream that isn't captured; one that has ended is closed. `program`
// becomes readable, or hangs up, when the program ends; -1 where nothing tells.
void drainOutput(FileDescriptor& output, std::string& outputBytes, FileDescriptor& errorOutput,
                 std::string& errorBytes, int program);

}  // namespace installer
