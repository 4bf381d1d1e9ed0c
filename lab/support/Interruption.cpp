#include "support/Interruption.h"

#include <initializer_list>

namespace lab {

sigset_t interruptingSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&set, signal);
  return set;
}

void holdInterruptions() {
  const sigset_t set = interruptingSignals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

int interruption() {
  sigset_t pending;
  sigpending(&pending);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    if (sigismember(&pending, signal) == 1) return signal;
  }
  return 0;
}

int exitStatusOf(int signal) {
  return 128 + signal;
}

}  // namespace lab
