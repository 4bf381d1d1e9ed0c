// Whole files that others wrote, read no further than a limit. Any thread.
#pragma once

#include <cstddef>
#include <string>

#include "Platform/FileSystem.h"

namespace installer {

// More than any bundle says about itself in its Info.plist.
inline constexpr std::size_t kMaximumInformationBytes = std::size_t{8} << 20U;

// Fails as the file system does, and with `CocoaError::fileReadCorrupt` for a longer file.
Result<std::string> readBoundedFile(FileSystem& files, const Path& path, std::size_t maximumBytes);

}  // namespace installer
