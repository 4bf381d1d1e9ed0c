// What the parts of the file system share about paths and trees.
#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/Path.h"

namespace installer {

// How many folders deep a tree is walked: more than any bundle has. A copy holds two descriptors for each
// folder that it is in, and a process may have no more than 256. Deeper items fail with ENAMETOOLONG.
inline constexpr int deepestFolder = 100;

// `path` without trailing slashes, which would follow a link; absent for a path that can't be one.
std::optional<Path> usablePath(const Path& path);

// The process's working directory; "/" when that was removed.
Path currentDirectory();

// `::lstat`, absent with errno set.
std::optional<struct stat> linkStatus(int folder, const char* name);

// Names in the open directory `folder` without "." and "..", in the volume's order; absent with errno set.
// Reads from the start each time and leaves `folder` open.
std::optional<std::vector<std::string>> namesIn(int folder);

// Opens the directory `name` of `folder`, not through a link.
FileDescriptor openFolder(int folder, const char* name);

// A regular file for reading; absent with errno set. Not blocking at the opening, so that a pipe under the
// name can't hold us up.
FileDescriptor openRegular(const Path& path);

// Writes all of it; false with errno set.
bool writeAll(int descriptor, std::string_view bytes);

// Removes the entry `name` of `folder` with everything beneath it; what is gone is removed. False with errno
// set, and then what could be removed before that is gone. `ours` also opens folders that were closed to
// their owner: for remains of our own work only. A descriptor is held for each of `levels` folders.
enum class TreeOwner { anyone, ours };
bool removeTree(int folder, const char* name, TreeOwner owner, int levels = deepestFolder);

}  // namespace installer
