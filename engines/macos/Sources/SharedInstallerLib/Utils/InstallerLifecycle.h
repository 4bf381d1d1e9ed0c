// Whether this installer is retired: after the last valid day of its build, or when the CDN tree that it was
// built for is gone. Only positive proof retires; any failure means "not retired". Any thread.
#pragma once

#include <optional>

#include "Models/PackageProvider.h"

namespace installer::InstallerLifecycle {

// True when the resources hold disk images. Determined once per process.
bool isOfflineBuild();

// Checks the date. Reads the clock, not the network; cheap. The configured day is valid until its end in UTC.
std::optional<InstallerRetirement> expiry();

// Call this only after a package lookup on the CDN ended with "not found". Probes the download page and
// blocks for at most 8 seconds. The verdict is final for the process; the probe isn't repeated.
std::optional<InstallerRetirement> confirmSourceRetired();

// The verdict of `confirmSourceRetired`; absent when there is none yet. Sends no request.
std::optional<InstallerRetirement> reachedSourceVerdict();

// `expiry()`, else `reachedSourceVerdict()`.
std::optional<InstallerRetirement> currentRetirement();

}  // namespace installer::InstallerLifecycle
