#include "Platform/POSIX/StagedRemoval.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/POSIX/FileTree.h"
#include "Platform/POSIX/HiddenSibling.h"
#include "Platform/POSIX/VolumeCalls.h"

namespace installer {

namespace {

bool isFolder(int parent, const char* name) {
  const auto status = linkStatus(parent, name);
  return status && S_ISDIR(status->st_mode);
}

bool mayChange(int folder) {
  return ::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0;
}

// Would everything in there let itself be removed, as far as permissions tell? An empty folder asks for none.
bool letsGoOfAll(int parent, const char* name, int depth) {
  const auto status = linkStatus(parent, name);
  if (!status) return errno == ENOENT;  // gone meanwhile
  if (!S_ISDIR(status->st_mode)) return true;
  const FileDescriptor inside = openFolder(parent, name);
  const auto names = inside ? namesIn(inside.get()) : std::nullopt;
  if (!names) return false;
  if (names->empty()) return true;
  if (depth == deepestFolder) errno = ENAMETOOLONG;
  if (depth == deepestFolder || !mayChange(inside.get())) return false;
  return std::ranges::all_of(
      *names, [&](const std::string& entry) { return letsGoOfAll(inside.get(), entry.c_str(), depth + 1); });
}

// Where a rename can't put a folder aside although it could be emptied where it stands: a mount point, a
// folder of an overlay's lower layer, a volume without room for another name.
bool isOnlyAboutRenaming(int reason) {
  return reason == EBUSY || reason == EXDEV || reason == ENOSPC || reason == EDQUOT;
}

// Nothing is taken when permissions would stop the removal half-way. A folder with a visible name is put
// aside first, so that a kill in mid-removal leaves nothing half under it. What can't be removed goes back,
// as far as it is still there.
bool removeFolder(int parent, const std::string& name, const RemoveEntry& removeEntry) {
  if (!mayChange(parent) || !letsGoOfAll(parent, name.c_str(), 0)) return false;
  if (name.front() == '.') return removeEntry(name.c_str());

  const HiddenSibling aside{parent, name, removalPurpose};
  aside.clearLeftovers();
  if (!renameWithoutReplacing(parent, name.c_str(), parent, aside.name())) {
    return isOnlyAboutRenaming(errno) && removeEntry(name.c_str());
  }
  if (removeEntry(aside.name())) return true;
  const int reason = errno;
  (void)renameWithoutReplacing(parent, aside.name(), parent, name.c_str());
  errno = reason;
  return false;
}

}  // namespace

bool removeStaged(int parent, const std::string& name, const RemoveEntry& removeEntry) {
  if (isFolder(parent, name.c_str())) return removeFolder(parent, name, removeEntry);
  return removeEntry(name.c_str());
}

}  // namespace installer
