// The part of both hosts' file systems that needs system calls only.
#pragma once

#include <sys/stat.h>

#include "Platform/FileSystem.h"

namespace installer {

FileIdentity identityOf(const struct stat& status);

// Holds no state.
class POSIXFileSystem : public FileSystem {
 public:
  // By a rename. Across volumes by `copyItem` and `removeItem`, so that `destination` never has a partial
  // copy.
  [[nodiscard]] Result<> moveItem(const Path& source, const Path& destination) override;
  [[nodiscard]] Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) override;
  // By flock(2).
  [[nodiscard]] Result<std::unique_ptr<FileLock>> tryLock(const Path& path) override;
  bool isHiddenVolume(const Path& path) override;
};

}  // namespace installer
