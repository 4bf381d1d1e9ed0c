#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/VolumeCalls.h"

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

bool isProtected(int folder, const char* name) {
  constexpr std::uint32_t kProtecting =
      UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND | SF_NOUNLINK | SF_RESTRICTED;
  const auto status = linkStatus(folder, name);
  if (status && (status->st_flags & kProtecting) != 0) return true;
  // Access lists can allow or refuse what the bits don't say. A system that doesn't take this question about
  // a link answers EINVAL, and then the removal itself has to tell.
  return faccessat(folder, name, _DELETE_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) != 0 &&
         (errno == EPERM || errno == EACCES);
}

bool flushVolume(int folder) {
  if (fsync_volume_np(folder, SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT) == 0) return true;
  if (errno == EIO) return false;
  // Not every kind of volume answers that; what this one does, every one does.
  sync();
  return true;
}

// A plain fsync leaves the bytes in the drive's own memory; not every volume offers more.
void flushFolder(int folder) {
  if (fcntl(folder, F_FULLFSYNC) == 0 || fcntl(folder, F_BARRIERFSYNC) == 0) return;
  (void)fsync(folder);
}

}  // namespace installer
