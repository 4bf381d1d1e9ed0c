#include "Platform/POSIX/ProcessStart.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace installer {

void settleSignals() {
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGCHLD, SIG_DFL);
}

void openMissingStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) == -1) (void)::open("/dev/null", O_RDWR);
  }
}

}  // namespace installer
