// Owns one file descriptor and closes it at destruction.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace installer {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_{descriptor} {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_{std::exchange(other.descriptor_, -1)} {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(std::exchange(other.descriptor_, -1));
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

  // Keeps errno, so that a failure can be reported after its descriptors are closed.
  void reset(int descriptor = -1) {
    const int kept = errno;
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = descriptor;
    errno = kept;
  }

 private:
  int descriptor_ = -1;
};

// Repeats a system call while a signal interrupts it.
template <class Call>
auto retryInterrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace installer
