// Requests to end the process, made by a test.
#pragma once

#include <utility>

#include "Platform/Signals.h"
#include "Support/SimulatedDispatch.h"

namespace installer::test {

class SimulatedSignals : public Signals {
 public:
  explicit SimulatedSignals(SimulatedDispatch& dispatch) : dispatch_{dispatch} {}

  // Requests the end of the process now or after `delay`. Without a handler, and after a second request, a
  // real process would end; then `endedAtOnce` is true.
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
