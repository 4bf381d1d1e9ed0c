// Requests to end the process, which a test delivers.
#pragma once

#include <utility>

#include "Platform/Signals.h"
#include "Support/SimulatedDispatch.h"

namespace installer::test {

class SimulatedSignals : public Signals {
 public:
  explicit SimulatedSignals(SimulatedDispatch& dispatch) : dispatch_{dispatch} {}

  // Asks the process to end: now, or `delay` from now. Without a handler the process would be gone, which
  // `endedAtOnce` tells afterwards; likewise after a second request.
  void requestTermination();
  void requestTerminationAt(Duration delay);
  bool hasHandler() const { return handler_ != nullptr; }
  bool endedAtOnce() const { return endedAtOnce_; }

  void onTerminationRequest(Work handler) override { handler_ = std::move(handler); }

 private:
  SimulatedDispatch& dispatch_;
  Work handler_;
  bool requested_ = false;
  bool endedAtOnce_ = false;
};

}  // namespace installer::test
