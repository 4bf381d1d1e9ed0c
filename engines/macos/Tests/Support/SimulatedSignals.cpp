#include "Support/SimulatedSignals.h"

namespace installer::test {

void SimulatedSignals::requestTermination() {
  if (handler_ == nullptr || std::exchange(requested_, true)) {
    endedAtOnce_ = true;
    return;
  }
  dispatch_.asyncMain(handler_);
}

void SimulatedSignals::requestTerminationAt(Duration delay) {
  dispatch_.schedule(delay, [this] { requestTermination(); });
}

}  // namespace installer::test
