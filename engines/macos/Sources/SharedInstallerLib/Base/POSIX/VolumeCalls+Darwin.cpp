#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <stdio.h>
#include <sys/mount.h>
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

std::optional<RemovalFacts> removalFacts(int folder, const char* name) {
  constexpr std::uint32_t kProtecting =
      UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND | SF_NOUNLINK | SF_RESTRICTED;
  const auto status = linkStatus(folder, name);
  if (!status) return std::nullopt;
  // Access lists can allow or refuse more than the permission bits. EINVAL means that the system can't check
  // a link; then only the removal itself shows it.
  const bool isProtected = (status->st_flags & kProtecting) != 0 ||
                           (faccessat(folder, name, _DELETE_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) != 0 &&
                            (errno == EPERM || errno == EACCES));
  return RemovalFacts{status->st_mode, status->st_uid, isProtected};
}

// Flushes the whole volume; an attached image has its own volume, which this doesn't flush.
bool flushTree(int folder, const char* /*name*/) {
  if (fsync_volume_np(folder, SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT) == 0) return true;
  if (errno == EIO) return false;
  // Not every volume supports that call; every volume supports sync.
  sync();
  return true;
}

// fsync leaves the bytes in the drive's cache, so it is only used on volumes without the other calls.
void flushFolder(int folder) {
  if (fcntl(folder, F_FULLFSYNC) == 0 || fcntl(folder, F_BARRIERFSYNC) == 0) return;
  (void)fsync(folder);
}

// A folder that is no mount point has the flags of the volume that contains it.
bool isHiddenVolume(const char* path) {
  struct statfs volume{};
  return statfs(path, &volume) == 0 && (volume.f_flags & MNT_DONTBROWSE) != 0 &&
         std::strcmp(volume.f_mntonname, path) == 0;
}

}  // namespace installer
