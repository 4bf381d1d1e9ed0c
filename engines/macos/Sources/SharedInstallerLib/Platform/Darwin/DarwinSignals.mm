// `Signals` on dispatch sources.
#include <dispatch/dispatch.h>
#include <signal.h>

#include <array>
#include <vector>

#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinSignals final : public Signals {
 public:
  void onTerminationRequest(Work handler) override {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      // The source sees the signal all the same; the default action would end the process first.
      signal(number, SIG_IGN);
      dispatch_source_t source = dispatch_source_create(
          DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(number), 0, dispatch_get_main_queue());
      dispatch_source_set_event_handler(source, ^{
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        signal(SIGHUP, SIG_DFL);
        handler();
      });
      dispatch_resume(source);
      sources_.push_back(source);
    }
  }

 private:
  std::vector<dispatch_source_t> sources_;
};

}  // namespace

std::unique_ptr<Signals> makeSignals() { return std::make_unique<DarwinSignals>(); }

}  // namespace installer::darwin
