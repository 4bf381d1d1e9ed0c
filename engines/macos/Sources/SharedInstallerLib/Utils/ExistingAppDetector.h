// What already stands on the machine for an application. Reads only.
// Any thread. Keeps the bundles that it read; no answer of `detect` is kept.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Bundles.h"
#include "Utils/AppInstallationStatus.h"

namespace installer::ExistingAppDetector {

// The primary copy (as registered, else at its expected place) and the other variants (as registered).
AppInstallationStatus detect(const AppInfo& app);

// `detect` for each, in order; of an app named twice the later answer stands.
std::map<AppIdentifier, AppInstallationStatus> detectAll(const std::vector<AppInfo>& apps);

// The version on disk now: at `path`, by default the expected place; when nothing stands there, that of the
// primary copy that `detect` finds.
std::optional<std::string> installedVersion(const AppInfo& app, const std::optional<Path>& path);

// The bundle at `path` as it was when it was first read; null when none is there.
std::shared_ptr<const Bundle> cachedBundle(const Path& path);

// The next read of `path` is of the disk. For whoever changes a bundle.
void forgetCachedBundle(const Path& path);

}  // namespace installer::ExistingAppDetector
