// The three streams of the process. Any thread. No buffering in user space: when a write returns, the bytes
// are in the pipe, file or terminal.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace installer {

class StandardStreams {
 public:
  virtual ~StandardStreams() = default;

  // Writes all bytes, also after short and interrupted writes; the bytes of one call aren't mixed with those
  // of other threads. Failures are ignored: without a reader the bytes are dropped and the engine continues.
  virtual void writeOutput(std::string_view bytes) = 0;
  virtual void writeError(std::string_view bytes) = 0;

  // The next line of standard input without its line feed, blocking; absent at the end of input.
  // A line longer than `kMaximumLineLength` bytes gives an empty one: its beginning could be a valid command.
  static constexpr std::size_t kMaximumLineLength = 1 << 20;
  virtual std::optional<std::string> readLine() = 0;
};

}  // namespace installer
