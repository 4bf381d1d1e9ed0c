// What reaches the process from outside besides its streams.
#pragma once

#include "Platform/Dispatch.h"

namespace installer {

class Signals {
 public:
  virtual ~Signals() = default;

  // From here on a person's or the system's request to end (Ctrl-C, a termination request) calls `handler`
  // on the main queue instead of ending the process. A second request while the first is being served ends
  // the process at once. Call once, on the main thread.
  virtual void onTerminationRequest(Work handler) = 0;
};

}  // namespace installer
