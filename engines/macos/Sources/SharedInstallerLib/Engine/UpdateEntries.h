// What a shell is told of one app's standing: the rows of `hello` and of `check-updates`.
// Any thread; may read the disk.
#pragma once

#include "Engine/EngineEvent.h"
#include "Utils/AppUpdateStatus.h"

namespace installer::UpdateEntries {

enum class PackageSourceMode { online, offline };

// A row of the catalog. In offline mode the packages beside the installer say what is on offer.
CatalogAppEvent catalogEntry(const AppUpdateStatus& status, PackageSourceMode mode);

// A row of the update report. Fetches the release notes, also for an app without an update, and blocks for
// up to 15 seconds meanwhile.
EngineEvent::UpdateCheckEntry updateCheckEntry(const AppUpdateStatus& status);

}  // namespace installer::UpdateEntries
