// Signals to this process.
#pragma once

#include "Platform/Dispatch.h"

namespace installer {

class Signals {
 public:
  virtual ~Signals() = default;

  // After this call a request to end (Ctrl-C, a termination request) runs `handler` on the main queue instead
  // of ending the process. A second request ends the process at once. Call once, on the main thread.
  virtual void onTerminationRequest(Work handler) = 0;
};

}  // namespace installer
