// Reads a program's output while it runs, so that long output never blocks it.
#pragma once

#include <string>

#include "Base/POSIX/FileDescriptor.h"

namespace installer {

// Reads both streams, limited by `KeptOutput`, until they have ended, or until the program has ended and no
// more output arrives: a descendant that has the output open isn't waited for. An absent reading end is a
// stream that isn't captured; the reading end of an ended stream is closed. `program` becomes readable, or
// hangs up, when the program ends; -1 without such a descriptor.
void drainOutput(FileDescriptor& output, std::string& outputBytes, FileDescriptor& errorOutput,
                 std::string& errorBytes, int program);

}  // namespace installer
