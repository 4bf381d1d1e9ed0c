// Starts programs by absolute path, without a shell. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// Which of the program's streams are kept. What isn't kept is drained and dropped.
enum class CapturedOutput {
  merged,    // both streams in arrival order, in `output`
  separate,  // `output` and `errorOutput`
  none,
};

struct ProgramExit {
  std::int32_t status = 0;  // the exit status; 128 + the signal's number when a signal ended it
  std::string output;       // raw bytes, as `KeptOutput` keeps them
  std::string errorOutput;  // likewise; empty unless `separate`
};

class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;

  // Runs to the program's end, however long that takes, draining its output meanwhile. Standard input is
  // empty. A launch error (missing, not executable) is the Result's; a non-zero status isn't an error here.
  [[nodiscard]] virtual Result<ProgramExit> run(const Path& program,
                                                const std::vector<std::string>& arguments,
                                                CapturedOutput captured) = 0;

  // Starts the program and returns: it may outlive the engine, and its exit status is ignored.
  [[nodiscard]] virtual Result<> launch(const Path& program, const std::vector<std::string>& arguments) = 0;
};

}  // namespace installer
