#include "Base/POSIX/OutputDrain.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fcntl.h>
#include <poll.h>

#include "Base/KeptOutput.h"

namespace installer {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Limits for a descendant that outlives the program and has its output open.
constexpr auto kSilenceAfterExit = 200ms;
constexpr auto kLongestAfterExit = 2s;

// The reading end of one captured stream.
struct Capture {
  FileDescriptor& reading;
  KeptOutput bytes;

  // Reads the available bytes; closes at the end of the stream.
  void take() {
    std::array<char, 65536> buffer;
    const auto count = retryInterrupted([&] { return ::read(reading.get(), buffer.data(), buffer.size()); });
    if (count > 0) {
      bytes.append({buffer.data(), static_cast<std::size_t>(count)});
      return;
    }
    if (count < 0 && errno == EAGAIN) return;
    reading.reset();
  }
};

// Reads both streams until they end, or until the program has ended and no more output arrives.
class Drain {
 public:
  Drain(Capture& output, Capture& errorOutput, int program)
      : output_{output}, errorOutput_{errorOutput}, program_{program} {}

  void run() {
    while (output_.reading || errorOutput_.reading) {
      if (!turn()) return;
    }
  }

 private:
  Capture& output_;
  Capture& errorOutput_;
  int program_;  // -1 after the program's end, or without a descriptor
  Clock::time_point deadline_ = Clock::time_point::max();

  // The longest wait for output in milliseconds; -1, without a limit, while the program runs.
  int patience() const {
    if (deadline_ == Clock::time_point::max()) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
    return static_cast<int>(
        std::max(0ms, std::min<std::chrono::milliseconds>(left, kSilenceAfterExit)).count());
  }

  bool turn() {
    // poll ignores a negative descriptor.
    std::array<pollfd, 3> waits{pollfd{output_.reading.get(), POLLIN, 0},
                                pollfd{errorOutput_.reading.get(), POLLIN, 0}, pollfd{program_, POLLIN, 0}};
    const int ready = retryInterrupted([&] { return ::poll(waits.data(), waits.size(), patience()); });
    if (ready <= 0) return false;
    if (waits[0].revents != 0) output_.take();
    if (waits[1].revents != 0) errorOutput_.take();
    if (waits[2].revents != 0) {
      program_ = -1;
      deadline_ = Clock::now() + kLongestAfterExit;
    }
    return Clock::now() < deadline_;
  }
};

}  // namespace

void drainOutput(FileDescriptor& output, std::string& outputBytes, FileDescriptor& errorOutput,
                 std::string& errorBytes, int program) {
  // The writing ends block, as programs expect. The reading ends don't, because a read can block after poll.
  for (const FileDescriptor* reading : {&output, &errorOutput}) {
    if (*reading) ::fcntl(reading->get(), F_SETFL, O_NONBLOCK);
  }
  Capture kept{output, {}};
  Capture keptError{errorOutput, {}};
  Drain{kept, keptError, program}.run();
  outputBytes = kept.bytes.take();
  errorBytes = keptError.bytes.take();
}

}  // namespace installer
