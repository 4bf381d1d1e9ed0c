// Whole files, read and replaced. Any thread.
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// The bytes of a regular file. `CocoaError::fileReadCorrupt` for a file of more than `maximumBytes`.
[[nodiscard]] Result<std::string> readWholeFile(
    const Path& path, std::size_t maximumBytes = std::numeric_limits<std::size_t>::max());

// Writes a hidden sibling and renames it: `path` holds its old bytes or all of the new ones. Clears the
// leftovers of `path` first. Keeps the permission bits of the file that it replaces. A link at `path` is
// replaced, not followed.
[[nodiscard]] Result<> replaceFile(const Path& path, std::string_view bytes);

}  // namespace installer
