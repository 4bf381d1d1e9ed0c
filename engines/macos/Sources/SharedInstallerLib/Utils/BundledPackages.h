// The disk images in the installer's own resources, and their manifest:
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

// The path of the folder `packages` in the resources; the folder may be missing. Absent without resources.
std::optional<Path> packagesFolder();

// True when `packagesFolder` holds a disk image of any app. Reads the folder at each call.
bool bundledPackagesAvailable();

// The manifest by `destination`, which is an app's `tempFileName`. Read once per process; empty when it
// can't be read.
const std::map<std::string, PackageMeta>& manifest();

// Both are from the app's entry in the manifest.
std::optional<std::string> bundledVersion(const AppInfo& app);
std::optional<std::int64_t> bundledSize(const AppInfo& app);  // bytes

}  // namespace installer::BundledPackages
