// The one script object that all privileged command lines of the process go through, so that one granted
// authorization serves the whole burst. Inside the disk-image installer only.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "Installer/AdminOutcome.h"
#include "Platform/AdministratorScript.h"

namespace installer {

class PrivilegedRunner {
 public:
  static PrivilegedRunner& shared();

  // Main thread; blocks until the command has ended or the prompt was dismissed.
  AdminOutcome run(const std::string& command);

 private:
  std::mutex privilegedRunnerLock_;  // held across each execution, the fallback's included
  bool isMade_ = false;
  std::unique_ptr<AdministratorScript> script_;  // null when the platform couldn't make it; made once

  AdministratorScript* privilegedRunner();
};

}  // namespace installer
