// The three streams by plain system calls.
#pragma once

#include "Base/Mutex.h"
#include "Platform/StandardStreams.h"

namespace installer {

class POSIXStandardStreams : public StandardStreams {
 public:
  void writeOutput(std::string_view bytes) override;
  void writeError(std::string_view bytes) override;
  // A last line without a line feed is a line. Callers take turns; nothing waits for a caller at exit.
  std::optional<std::string> readLine() override;

 private:
  Mutex writingOutput_;  // a write of more than a pipe takes at once is made in several pieces
  Mutex writingError_;
  Mutex reading_;
  std::string buffer_ GUARDED_BY(reading_);  // what was read beyond the last line
};

}  // namespace installer
