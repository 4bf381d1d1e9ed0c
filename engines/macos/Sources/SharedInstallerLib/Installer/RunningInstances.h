// The running instances of an app, and how they are made to quit before their bundle is replaced or removed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch.h"
#include "Platform/RunningApplications.h"

namespace installer {

// Those of each identifier in turn, wherever their bundles lie. Not de-duplicated.
std::vector<RunningApplication> runningInstances(const std::vector<std::string>& bundleIdentifiers);

// For the log.
std::string nameOf(const RunningApplication& application);

// How one caller of `quitRunningInstances` waits and what it logs.
struct QuitManner {
  std::string_view speaker;  // starts each log line
  // The rest of the line about an instance that is asked to quit.
  std::string (*request)(const RunningApplication& application);
  Duration lookInterval;  // between two looks at what still runs
  Duration settlingTime;  // what the system gets to release forced processes
  // Whether a wait that ran out settles even when the last look finds nothing to force.
  bool settlesAfterEveryWait;
};

// Asks every instance under these identifiers to quit, looks for up to five seconds, forces what remains.
// Blocks; not on the main thread while something needs its queue.
void quitRunningInstances(const std::vector<std::string>& bundleIdentifiers, const QuitManner& manner);

}  // namespace installer
