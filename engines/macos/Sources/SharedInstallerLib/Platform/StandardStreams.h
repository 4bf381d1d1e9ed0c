// The three streams of the process. Any thread. No buffering in user space: the bytes have reached the pipe,
// file or terminal when a write returns.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace installer {

class StandardStreams {
 public:
  virtual ~StandardStreams() = default;

  // Writes everything, going on after short and interrupted writes; the bytes of one call stay together,
  // whatever other threads write. A reader that went away costs the bytes and nothing else: the engine's work
  // doesn't depend on being watched.
  virtual void writeOutput(std::string_view bytes) = 0;
  virtual void writeError(std::string_view bytes) = 0;

  // The next line of standard input without its line feed, blocking; absent at the end of input.
  // A line longer than `maximumLineLength` bytes arrives empty: its beginning could read as a whole command.
  static constexpr std::size_t maximumLineLength = 1 << 20;
  virtual std::optional<std::string> readLine() = 0;
};

}  // namespace installer
