// Runs a program to its end, without a shell, and collects its output.
#pragma once

#include <string>
#include <vector>

#include "support/OrReason.h"

namespace lab {

struct Finished {
  int status = 0;  // the exit status, or 128 + the signal that ended it
  std::string output;
  std::string diagnostics;
};

// Blocks until the program has ended. `command[0]` is looked up in PATH. The program runs in a UTF-8 locale,
// with empty standard input, and ends with this process. Fails when it can't be started, when its output is
// longer than 256 MiB, or when this process gets a request to stop (see Interruption.h); then the program has
// ended too.
OrReason<Finished> runToEnd(const std::vector<std::string>& command);

// The last line of `text` that isn't blank.
std::string lastLine(const std::string& text);

}  // namespace lab
