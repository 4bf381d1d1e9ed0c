#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

namespace {

// Fails for an item that its owner may not read, and where the volume can't flush a single item. A link is
// part of its folder.
bool flushItem(int folder, const char* name) {
  const auto status = linkStatus(folder, name);
  if (!status) return false;
  const bool isFolder = S_ISDIR(status->st_mode);
  if (!isFolder && !S_ISREG(status->st_mode)) return true;
  const FileDescriptor item{::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)};
  if (!item) return false;
  const auto names = isFolder ? namesIn(item.get()) : std::vector<std::string>{};
  if (!names) return false;
  const auto flushed = [&](const std::string& each) { return flushItem(item.get(), each.c_str()); };
  return std::ranges::all_of(*names, flushed) && ::fsync(item.get()) == 0;
}

}  // namespace

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

// Item by item: syncfs also writes all other files of the volume, for example those of an unpacked image,
// which are removed next.
bool flushTree(int folder, const char* name) {
  if (flushItem(folder, name)) return true;
  const bool isLost = errno == EIO || errno == ENOSPC || errno == EDQUOT;
  return !isLost && ::syncfs(folder) == 0;
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
