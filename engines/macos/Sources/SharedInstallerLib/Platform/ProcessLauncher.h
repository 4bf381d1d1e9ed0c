// Starts programs by absolute path, without a shell. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Error.h"
#include "Platform/Path.h"

namespace installer {

// Which of the program's streams are kept. What isn't kept is drained and dropped.
enum class CapturedOutput {
  merged,    // both streams in arrival order, in `output`
  separate,  // `output` and `errorOutput`
  none,
};

// What is kept of a program's output: all of it, or of more than `kLongest` bytes the first and the last half
// of that, with a line between them that says how many bytes are left out.
class KeptOutput {
 public:
  static constexpr std::size_t kLongest = 512UL * 1024;

  void append(std::string_view bytes);
  // Takes the text out; nothing is kept afterwards.
  std::string take();

 private:
  std::string first_;
  std::string last_;  // up to twice its share, so that it is cut seldom
  std::size_t leftOut_ = 0;

  void cutLast();
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
  virtual Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                                  CapturedOutput captured) = 0;

  // Starts and forgets: the program outlives the engine, and its end is nobody's business.
  virtual Result<> launch(const Path& program, const std::vector<std::string>& arguments) = 0;
};

}  // namespace installer
