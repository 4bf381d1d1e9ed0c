// Functions shared by the file systems of both hosts.
#pragma once

#include <sys/stat.h>

#include "Platform/FileSystem.h"

namespace installer {

FileIdentity identityOf(const struct stat& status);

// `FileSystem::attributes` of an open file.
Result<FileAttributes> attributesOf(int descriptor, const Path& path);

// `FileSystem::tryLock` by flock(2).
Result<std::unique_ptr<FileLock>> tryFlock(const Path& path);

// `FileSystem::moveItem` by a rename. Across volumes `files` copies and then removes.
[[nodiscard]] Result<> moveByRename(FileSystem& files, const Path& source, const Path& destination);

}  // namespace installer
