#include <array>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

#include "Platform/Linux/Dispatch/LinuxDispatch.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

constexpr std::array kStopSignals{SIGINT, SIGTERM, SIGHUP};

int event = -1;  // created before the first signal can arrive; never closed

// The first request is posted to the main queue. Afterwards each signal has its default effect, so that the
// second ends the process even if the main queue is never served again.
void onRequest(int) {
  const int kept = errno;
  for (const int signal : kStopSignals) {
    struct sigaction current{};
    ::sigaction(signal, nullptr, &current);
    if (current.sa_handler == onRequest) ::signal(signal, SIG_DFL);
  }
  const std::uint64_t one = 1;
  (void)!::write(event, &one, sizeof one);
  errno = kept;
}

}  // namespace

void LinuxSignals::onTerminationRequest(Work handler) {
  assert(dispatch_.isMainThread());
  if (event < 0) event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  // The event is reset, so that a later caller gets only later requests.
  dispatch_.asyncMainWhenReadable(event, [handler = std::move(handler)] {
    std::uint64_t count = 0;
    (void)!::read(event, &count, sizeof count);
    handler();
  });
  for (const int signal : kStopSignals) {
    struct sigaction current{};
    ::sigaction(signal, nullptr, &current);
    if (current.sa_handler == SIG_IGN) continue;
    struct sigaction action{};
    action.sa_handler = onRequest;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
  }
}

}  // namespace installer
