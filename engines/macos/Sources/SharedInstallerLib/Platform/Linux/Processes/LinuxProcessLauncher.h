// Starts programs in process groups of their own, so that a Ctrl-C at the terminal reaches the engine alone
// and not a helper in the middle of its work.
#pragma once

#include "Platform/ProcessLauncher.h"

namespace installer {

// Holds no state: any number may exist, on any thread.
class LinuxProcessLauncher : public ProcessLauncher {
 public:
  // A descendant that keeps the program's output open delays the answer for a moment at most: once the
  // program has ended, reading stops when the output falls silent.
  Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                          CapturedOutput captured) override;
  Result<> launch(const Path& program, const std::vector<std::string>& arguments) override;
};

}  // namespace installer
