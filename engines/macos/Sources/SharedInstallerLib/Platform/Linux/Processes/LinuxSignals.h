// Requests to end: SIGINT, SIGTERM and SIGHUP.
#pragma once

#include "Platform/Signals.h"

namespace installer {

class LinuxDispatch;

class LinuxSignals : public Signals {
 public:
  explicit LinuxSignals(LinuxDispatch& dispatch) : dispatch_{dispatch} {}
  // A signal that was ignored when the process started (nohup, a shell's background job) stays ignored.
  void onTerminationRequest(Work handler) override;

 private:
  LinuxDispatch& dispatch_;
};

}  // namespace installer
