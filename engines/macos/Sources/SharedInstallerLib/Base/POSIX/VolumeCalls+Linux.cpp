#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

bool renameWithoutReplacing(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  if (::renameat2(oldFolder, oldName, newFolder, newName, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (linkStatus(newFolder, newName)) {
    errno = EEXIST;
    return false;
  }
  return ::renameat(oldFolder, oldName, newFolder, newName) == 0;
}

// A stat has no flags, so it would take a second call for each entry.
std::optional<RemovalFacts> removalFacts(int folder, const char* name) {
  constexpr std::uint64_t protecting = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
  constexpr unsigned wanted = STATX_TYPE | STATX_MODE | STATX_UID;
  struct statx status{};
  if (::statx(folder, name, AT_SYMLINK_NOFOLLOW, wanted, &status) != 0) return std::nullopt;
  return RemovalFacts{status.stx_mode, status.stx_uid, (status.stx_attributes & protecting) != 0};
}

bool flushVolume(int folder) {
  return ::syncfs(folder) == 0;
}

void flushFolder(int folder) {
  (void)::fsync(folder);
}

// On Linux an attached volume is a folder, and the sticky bit hides it.
bool isHiddenVolume(const char* path) {
  const auto status = linkStatus(AT_FDCWD, path);
  return status && S_ISDIR(status->st_mode) && (status->st_mode & S_ISVTX) != 0;
}

}  // namespace installer
