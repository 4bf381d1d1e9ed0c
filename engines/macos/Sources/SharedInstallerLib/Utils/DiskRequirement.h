// The disk space that an install takes, and the free space. Sizes are bytes; absent means unknown, not zero.
// Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "Base/Path.h"
#include "Models/AppInfo.h"

namespace installer::DiskRequirement {

// The greatest need, when the image and the expanded bundle are on the disk together: at least
// `downloadBytes`. The size of the copy at `existingInstallPath` is subtracted. Saturates at the greatest
// 64-bit figure, for absurd metadata.
std::int64_t peakBytes(const AppInfo& app, std::int64_t downloadBytes,
                       const std::optional<Path>& existingInstallPath);

// Allocated bytes of the regular files below `path`. Hidden files are left out, links aren't followed. Absent
// when there is no such directory. Walks the whole tree.
std::optional<std::int64_t> directorySize(const Path& path);

// Bytes free on the volume of `path`.
std::optional<std::int64_t> volumeFreeBytes(const Path& path);

}  // namespace installer::DiskRequirement
