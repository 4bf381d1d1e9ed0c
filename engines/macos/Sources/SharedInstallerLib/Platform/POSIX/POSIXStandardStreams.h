// The three streams by plain system calls.
#pragma once

#include "Base/Mutex.h"
#include "Platform/StandardStreams.h"

namespace installer {

class POSIXStandardStreams : public StandardStreams {
 public:
  void writeOutput(std::string_view bytes) override;
  void writeError(std::string_view bytes) override;
  // A last line without a line feed is a line. Callers are serialized; the exit of the process doesn't wait
  // for a blocked caller.
  std::optional<std::string> readLine() override;

 private:
  Mutex writingOutput_;  // a write longer than a pipe's free space takes several calls
  Mutex writingError_;
  Mutex reading_;
  std::string buffer_ GUARDED_BY(reading_);  // bytes read beyond the last line
};

}  // namespace installer
