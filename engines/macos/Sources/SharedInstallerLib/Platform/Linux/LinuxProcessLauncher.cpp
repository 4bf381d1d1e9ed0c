#include "Platform/Linux/LinuxProcessLauncher.h"

#include <array>
#include <chrono>
#include <fcntl.h>
#include <poll.h>

#include "Platform/Linux/ProcessHandle.h"
#include "Platform/Linux/Spawn.h"

namespace installer {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// For descendants that outlive the program with its output open.
constexpr auto silenceAfterExit = 200ms;
constexpr auto longestAfterExit = 2s;

// The reading end of one captured stream.
struct Capture {
  FileDescriptor reading;
  std::string* bytes = nullptr;

  // Takes what is there; closes at the end of the stream.
  void take() {
    std::array<char, 65536> buffer;
    const auto count = retryInterrupted([&] { return ::read(reading.get(), buffer.data(), buffer.size()); });
    if (count > 0) {
      bytes->append(buffer.data(), static_cast<std::size_t>(count));
      return;
    }
    if (count < 0 && errno == EAGAIN) return;
    reading.reset();
  }
};

// Drains both streams until they end, or the program has ended and they have fallen silent.
class Drain {
 public:
  Drain(std::array<Capture, 2>& captures, int program) : captures_{captures}, program_{program} {}

  void run() {
    while (captures_[0].reading || captures_[1].reading) {
      if (!turn()) return;
    }
  }

 private:
  std::array<Capture, 2>& captures_;
  int program_;  // pidfd; -1 once it has told the program's end, or where there is none
  Clock::time_point deadline_ = Clock::time_point::max();

  // The milliseconds until the silence has lasted long enough; -1 while the program runs.
  int patience() const {
    if (deadline_ == Clock::time_point::max()) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
    return static_cast<int>(
        std::max(0ms, std::min<std::chrono::milliseconds>(left, silenceAfterExit)).count());
  }

  bool turn() {
    // A negative descriptor is passed over by poll.
    std::array<pollfd, 3> waits{pollfd{captures_[0].reading.get(), POLLIN, 0},
                                pollfd{captures_[1].reading.get(), POLLIN, 0}, pollfd{program_, POLLIN, 0}};
    const int ready = retryInterrupted([&] { return ::poll(waits.data(), waits.size(), patience()); });
    if (ready <= 0) return false;
    if (waits[0].revents != 0) captures_[0].take();
    if (waits[1].revents != 0) captures_[1].take();
    if (waits[2].revents != 0) {
      program_ = -1;
      deadline_ = Clock::now() + longestAfterExit;
    }
    return Clock::now() < deadline_;
  }
};

struct CapturePipes {
  Pipe output;
  Pipe errorOutput;
};

// Pipes as far as `captured` needs them. The reading ends don't block; the writing ends do, as programs
// expect.
Result<CapturePipes> makePipes(CapturedOutput captured, const Path& program) {
  CapturePipes pipes;
  if (captured == CapturedOutput::none) return pipes;
  pipes.output = makePipe();
  if (captured == CapturedOutput::separate) pipes.errorOutput = makePipe();
  if (!pipes.output.reading || (captured == CapturedOutput::separate && !pipes.errorOutput.reading)) {
    return std::unexpected(launchError(errno, program));
  }
  for (const Pipe* pipe : {&pipes.output, &pipes.errorOutput}) {
    if (pipe->reading) ::fcntl(pipe->reading.get(), F_SETFL, O_NONBLOCK);
  }
  return pipes;
}

}  // namespace

Result<ProgramExit> LinuxProcessLauncher::run(const Path& program, const std::vector<std::string>& arguments,
                                              CapturedOutput captured) {
  auto pipes = makePipes(captured, program);
  if (!pipes) return std::unexpected(pipes.error());
  SpawnRequest request;
  request.program = program;
  request.arguments = arguments;
  request.output = pipes->output.writing.get();
  request.errorOutput =
      captured == CapturedOutput::merged ? request.output : pipes->errorOutput.writing.get();
  const auto child = spawn(request);
  if (!child) return std::unexpected(launchError(child.error(), program));
  pipes->output.writing.reset();
  pipes->errorOutput.writing.reset();

  ProgramExit exit;
  std::array captures{Capture{std::move(pipes->output.reading), &exit.output},
                      Capture{std::move(pipes->errorOutput.reading), &exit.errorOutput}};
  const FileDescriptor handle = holdProcess(*child);
  Drain{captures, handle.get()}.run();
  exit.status = waitForExit(*child);
  return exit;
}

Result<> LinuxProcessLauncher::launch(const Path& program, const std::vector<std::string>& arguments) {
  const auto started = spawnDetached(program, arguments);
  if (!started) return std::unexpected(launchError(started.error(), program));
  return {};
}

}  // namespace installer
