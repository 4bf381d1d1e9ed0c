// Answers, for a list of apps, what is installed, what the content delivery network offers, and whether the
// source as a whole has gone missing.
//
// Any thread but a session's own, the main one only while nothing needs its queue; blocks until it has its
// answer, which takes at most two metadata fetches. A sweep never fails as a whole.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Platform/Dispatch.h"
#include "Utils/AppUpdateStatus.h"

namespace installer {

struct UpdateSweep {
  std::vector<AppUpdateStatus> statuses;  // in the order of the apps given
  // Every app was looked up and none was there: the tree as such may be gone.
  bool allPackagesMissing = false;
};

namespace UpdateChecker {

// Without `network` only what is installed is told.
UpdateSweep sweep(const std::vector<AppInfo>& apps, bool network);
std::vector<AppUpdateStatus> statusAll(const std::vector<AppInfo>& apps, bool network);
// Absent when the fetch fails or the metadata names no version.
std::optional<std::string> fetchLatestVersion(const AppInfo& app, Duration timeout);

}  // namespace UpdateChecker

}  // namespace installer
