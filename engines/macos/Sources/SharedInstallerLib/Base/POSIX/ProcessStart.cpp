#include "Base/POSIX/ProcessStart.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace installer {

void settleSignals() {
  // A handler and not SIG_IGN, because programs that the engine starts would inherit SIG_IGN.
  struct sigaction quiet{};
  quiet.sa_handler = [](int) {};
  quiet.sa_flags = SA_RESTART;
  ::sigaction(SIGPIPE, &quiet, nullptr);
  ::sigaction(SIGXFSZ, &quiet, nullptr);
  ::signal(SIGCHLD, SIG_DFL);
}

void openMissingStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) == -1) (void)::open("/dev/null", O_RDWR);
  }
}

}  // namespace installer
