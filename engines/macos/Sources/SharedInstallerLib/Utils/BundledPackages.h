// The disk images that lie in the installer's own resources, and the list of them:
//   packages/packages.json     the manifest
//   packages/{tempFileName}    one image per app
// Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Base/Path.h"
#include "Models/AppInfo.h"
#include "Models/PackageMeta.h"

namespace installer::BundledPackages {

// The folder `packages` among the resources, whether it exists or not; absent without resources.
std::optional<Path> packagesFolder();

// At least one disk image lies there, of whatever app. Looks at the disk each time.
bool bundledPackagesAvailable();

// The manifest by `destination`, which is an app's `tempFileName`. Read once per process; empty when it
// can't be read.
const std::map<std::string, PackageMeta>& manifest();

// From the app's entry of the manifest.
std::optional<std::string> bundledVersion(const AppInfo& app);
std::optional<std::int64_t> bundledSize(const AppInfo& app);  // bytes

}  // namespace installer::BundledPackages
