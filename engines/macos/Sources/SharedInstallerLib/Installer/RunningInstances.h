// What both roads that quit apps ask of the running ones.
#pragma once

#include <string>
#include <vector>

#include "Platform/RunningApplications.h"

namespace installer {

// Those of each identifier in turn, wherever their bundles lie. Not de-duplicated.
std::vector<RunningApplication> runningInstances(const std::vector<std::string>& bundleIdentifiers);

// For the log.
std::string nameOf(const RunningApplication& application);

}  // namespace installer
