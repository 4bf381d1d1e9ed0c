#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/POSIX/FileTree.h"
#include "Platform/POSIX/VolumeCalls.h"

namespace installer {

bool renameWithoutReplacing(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  if (renameatx_np(oldFolder, oldName, newFolder, newName, RENAME_EXCL) == 0) return true;
  if (errno != ENOTSUP && errno != EINVAL) return false;
  if (linkStatus(newFolder, newName)) {
    errno = EEXIST;
    return false;
  }
  return renameat(oldFolder, oldName, newFolder, newName) == 0;
}

bool flushVolume(int folder) {
  if (fsync_volume_np(folder, SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT) == 0) return true;
  if (errno == EIO) return false;
  // Not every kind of volume answers that; what this one does, every one does.
  sync();
  return true;
}

}  // namespace installer
