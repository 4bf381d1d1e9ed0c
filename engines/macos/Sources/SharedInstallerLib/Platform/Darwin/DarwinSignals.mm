// `Signals` on dispatch sources.
#import <Foundation/Foundation.h>
#include <array>
#include <cassert>
#include <cerrno>
#include <dispatch/dispatch.h>
#include <signal.h>
#include <vector>

#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

constexpr std::array kRequests{SIGINT, SIGTERM, SIGHUP};

// The dispatch source posts the first request to the main queue. Afterwards each signal has its default
// effect, so that the second request ends the process even if the main queue is never served again. A handler
// and not SIG_IGN, because programs that the engine starts would inherit SIG_IGN.
void onRequest(int) {
  const int kept = errno;
  for (const int number : kRequests) {
    struct sigaction current{};
    sigaction(number, nullptr, &current);
    if (current.sa_handler == onRequest) signal(number, SIG_DFL);
  }
  errno = kept;
}

bool isIgnored(int number) {
  struct sigaction current{};
  sigaction(number, nullptr, &current);
  return current.sa_handler == SIG_IGN;
}

class DarwinSignals final : public Signals {
 public:
  void onTerminationRequest(Work handler) override {
    assert([NSThread isMainThread]);
    for (const int number : kRequests) {
      // A signal that the parent process ignored stays ignored.
      if (!isIgnored(number)) listen(number, handler);
    }
  }

 private:
  std::vector<dispatch_source_t> sources_;

  void listen(int number, const Work& handler) {
    const Work work = handler;
    dispatch_source_t source = dispatch_source_create(
        DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0, dispatch_get_main_queue());
    dispatch_source_set_event_handler(source, ^{
      @autoreleasepool {
        work();
      }
    });
    dispatch_resume(source);
    sources_.push_back(source);
    struct sigaction action{};
    action.sa_handler = onRequest;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
  }
};

}  // namespace

std::unique_ptr<Signals> makeSignals() {
  return std::make_unique<DarwinSignals>();
}

}  // namespace installer::darwin
