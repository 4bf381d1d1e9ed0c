// The output of `hdiutil` about attached images. Pure; any thread.
#pragma once

#include <span>
#include <string>

#include "hdiutil/MountTable.h"

namespace lab {

// The property list of `attach -plist`: "system-entities", of which one has a "mount-point".
std::string attachedList(const Mount& mount);

// The lines of `attach` without -plist: device, content, mount point, separated by tabs.
std::string attachedLines(const Mount& mount);

// The property list of `info -plist`.
std::string infoList(std::span<const Mount> mounts);

// The lines of `info` without -plist.
std::string infoLines(std::span<const Mount> mounts);

}  // namespace lab
