// The three streams by plain system calls.
#pragma once

#include <mutex>

#include "Platform/StandardStreams.h"

namespace installer {

class POSIXStandardStreams : public StandardStreams {
 public:
  void writeOutput(std::string_view bytes) override;
  void writeError(std::string_view bytes) override;
  // A last line without a line feed is a line. Callers take turns; nothing waits for a caller at exit.
  std::optional<std::string> readLine() override;

 private:
  std::mutex writingOutput_;  // a write of more than a pipe takes at once is made in several pieces
  std::mutex writingError_;
  std::mutex reading_;
  std::string buffer_;  // what was read beyond the last line
};

}  // namespace installer
