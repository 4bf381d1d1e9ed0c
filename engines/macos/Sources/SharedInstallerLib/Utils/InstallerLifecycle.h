// Whether this installer is still current: by the last day of its build, and by whether the CDN tree that it
// was built against still stands. Fails towards "not retired": only a positive proof retires. Any thread.
#pragma once

#include <optional>

#include "Models/PackageProvider.h"

namespace installer::InstallerLifecycle {

// Disk images lie among the resources. Looked up once per process.
bool isOfflineBuild();

// The test of the date. Reads the clock; no network; cheap. The configured day is good through its whole
// length, in UTC.
std::optional<InstallerRetirement> expiry();

// To be called only after a package lookup on the CDN was answered with "not found". Asks the download page,
// for at most 8 seconds, and blocks meanwhile; the answer is final for the process and isn't asked again.
std::optional<InstallerRetirement> confirmSourceRetired();

// What `confirmSourceRetired` decided so far; absent when nothing was decided. Never asks.
std::optional<InstallerRetirement> reachedSourceVerdict();

// `expiry()`, else `reachedSourceVerdict()`.
std::optional<InstallerRetirement> currentRetirement();

}  // namespace installer::InstallerLifecycle
