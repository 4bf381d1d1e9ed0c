// Functions for paths and trees, shared by the parts of the file system. Stateless; any thread.
#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/Path.h"

namespace installer {

// The greatest depth of a tree, in folders; more than any bundle has. A copy holds two descriptors per level,
// and a process may be limited to 256. Deeper items fail with ENAMETOOLONG.
inline constexpr int kDeepestFolder = 100;

// `path` without trailing slashes, which would follow a link; absent for an invalid path.
std::optional<Path> usablePath(const Path& path);

// The process's working directory; "/" when that was removed.
Path currentDirectory();

// `::lstat`, absent with errno set.
std::optional<struct stat> linkStatus(int folder, const char* name);

// Names in the open directory `folder` without "." and "..", in the volume's order; absent with errno set.
// Reads from the start each time and leaves `folder` open.
std::optional<std::vector<std::string>> namesIn(int folder);

// Opens the directory `name` of `folder`. Doesn't follow a link.
FileDescriptor openFolder(int folder, const char* name);

// Opens a regular file for reading; absent with errno set. Doesn't block when `path` is a pipe.
FileDescriptor openRegular(const Path& path);

// Writes all of it; false with errno set.
bool writeAll(int descriptor, std::string_view bytes);

// Removes the entry `name` of `folder` with everything below it; missing entries are a success. False with
// errno set, after a part may have been removed. `ours` also opens folders without permissions for their
// owner; it is for leftovers of our own work only. Holds a descriptor for each of `levels` folders.
enum class TreeOwner { anyone, ours };
bool removeTree(int folder, const char* name, TreeOwner owner, int levels = kDeepestFolder);

}  // namespace installer
