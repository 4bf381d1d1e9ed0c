#include "Platform/POSIX/POSIXStandardStreams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace installer {

namespace {

// Waits until the stream is ready: another process that shares it may have made it non-blocking.
void waitUntil(short ready, int descriptor) {
  pollfd wait{descriptor, ready, 0};
  (void)::poll(&wait, 1, -1);
}

// Failures are ignored: when the reader (EPIPE) or the terminal (EIO) is gone, the bytes are dropped.
void writeEverything(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    if (errno == EAGAIN) {
      waitUntil(POLLOUT, descriptor);
      continue;
    }
    if (errno != EINTR) return;
  }
}

// The next bytes, as many as have arrived; empty at the end of input.
std::string_view readSome(std::array<char, 65536>& buffer) {
  for (;;) {
    const auto count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count >= 0) return {buffer.data(), static_cast<std::size_t>(count)};
    if (errno == EAGAIN) waitUntil(POLLIN, STDIN_FILENO);
    if (errno != EAGAIN && errno != EINTR) return {};
  }
}

// Keeps one byte beyond the limit, which marks a line that is too long.
void appendCut(std::string& line, std::string_view more) {
  line.append(more.substr(0, StandardStreams::kMaximumLineLength + 1 - line.size()));
}

std::string unlessTooLong(std::string line) {
  return line.size() > StandardStreams::kMaximumLineLength ? std::string{} : line;
}

}  // namespace

void POSIXStandardStreams::writeOutput(std::string_view bytes) {
  const MutexLock lock{writingOutput_};
  writeEverything(STDOUT_FILENO, bytes);
}

void POSIXStandardStreams::writeError(std::string_view bytes) {
  const MutexLock lock{writingError_};
  writeEverything(STDERR_FILENO, bytes);
}

std::optional<std::string> POSIXStandardStreams::readLine() {
  const MutexLock lock{reading_};
  std::array<char, 65536> arrived;
  std::string line;
  for (;;) {
    const auto end = buffer_.find('\n');
    appendCut(line, std::string_view{buffer_}.substr(0, end));
    if (end != std::string::npos) {
      buffer_.erase(0, end + 1);
      return unlessTooLong(std::move(line));
    }
    const bool begun = !buffer_.empty() || !line.empty();
    buffer_ = readSome(arrived);
    if (!buffer_.empty()) continue;
    return begun ? std::optional{unlessTooLong(std::move(line))} : std::nullopt;
  }
}

}  // namespace installer
