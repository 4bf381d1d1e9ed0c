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

// The program's streams that are kept. Other output is read and dropped.
enum class CapturedOutput {
  merged,    // both streams in arrival order, in `output`
  separate,  // `output` and `errorOutput`
  none,
};

struct ProgramExit {
  std::int32_t status = 0;  // the exit status; 128 + the signal's number when a signal ended it
  std::string output;       // raw bytes, limited by `KeptOutput`
  std::string errorOutput;  // the same; empty unless `separate`
};

class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;

  // Blocks until the program has ended, without a time limit, and reads its output meanwhile. Standard input
  // is empty. Fails when the program can't be started (missing, not executable); a non-zero status isn't an
  // error.
  [[nodiscard]] virtual Result<ProgramExit> run(const Path& program,
                                                const std::vector<std::string>& arguments,
                                                CapturedOutput captured) = 0;

  // Starts the program and returns. The program may outlive the engine; its exit status is ignored.
  [[nodiscard]] virtual Result<> launch(const Path& program, const std::vector<std::string>& arguments) = 0;
};

}  // namespace installer
