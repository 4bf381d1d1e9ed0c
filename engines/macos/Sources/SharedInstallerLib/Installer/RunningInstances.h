// The running instances of an app, and their end before the bundle is replaced or removed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch.h"
#include "Platform/RunningApplications.h"

namespace installer {

// The instances of each identifier in order, with bundles at any path. Not de-duplicated.
std::vector<RunningApplication> runningInstances(const std::vector<std::string>& bundleIdentifiers);

// The application's name for the log.
std::string nameOf(const RunningApplication& application);

// The waits and log texts of one caller of `quitRunningInstances`.
struct QuitManner {
  std::string_view speaker;  // the first word of each log line
  // The rest of the line about a request to quit.
  std::string (*request)(const RunningApplication& application);
  Duration lookInterval;  // between two queries of the running instances
  Duration settlingTime;  // the wait after instances were ended by force
  // True: waits for `settlingTime` after every expired wait, also when no instance was left to end by force.
  bool settlesAfterEveryWait;
};

// Requests all instances with these identifiers to quit, waits up to five seconds, and ends the rest by
// force. Blocks; not on the main thread while something needs its queue.
void quitRunningInstances(const std::vector<std::string>& bundleIdentifiers, const QuitManner& manner);

}  // namespace installer
