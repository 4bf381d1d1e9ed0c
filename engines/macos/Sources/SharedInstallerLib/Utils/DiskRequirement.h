// How much disk space an install takes, and how much is free. Sizes are bytes; absent means unknown, which
// isn't zero. Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "Base/Path.h"
#include "Models/AppInfo.h"

namespace installer::DiskRequirement {

// What must be free at the worst moment, when image and expanded bundle are on the disk together: never less
// than `downloadBytes`. What the copy at `existingInstallPath` occupies is taken off. A figure beyond 64
// bits, which only absurd metadata gives, is the greatest one there is.
std::int64_t peakBytes(const AppInfo& app, std::int64_t downloadBytes,
                       const std::optional<Path>& existingInstallPath);

// Allocated bytes of the regular files below `path`, hidden ones left out, links not followed. Absent when
// there is no such directory. Walks the whole tree.
std::optional<std::int64_t> directorySize(const Path& path);

// Bytes free on the volume of `path`.
std::optional<std::int64_t> volumeFreeBytes(const Path& path);

}  // namespace installer::DiskRequirement
