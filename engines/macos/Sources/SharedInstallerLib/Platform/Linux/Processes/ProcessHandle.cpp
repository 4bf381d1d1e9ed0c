#include "Platform/Linux/Processes/ProcessHandle.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace installer {

// By number: the C library's header for these calls doesn't compile as C++.
FileDescriptor holdProcess(pid_t process) {
  return FileDescriptor{static_cast<int>(::syscall(SYS_pidfd_open, process, 0U))};
}

bool isRunning(const FileDescriptor& process) {
  pollfd end{process.get(), POLLIN, 0};
  return ::poll(&end, 1, 0) == 0;
}

bool signalProcess(const FileDescriptor& process, int signal) {
  return ::syscall(SYS_pidfd_send_signal, process.get(), signal, nullptr, 0U) == 0;
}

}  // namespace installer
