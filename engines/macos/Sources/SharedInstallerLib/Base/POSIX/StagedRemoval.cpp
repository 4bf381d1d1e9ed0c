#include "Base/POSIX/StagedRemoval.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

namespace {

bool mayChange(int folder) {
  return ::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0;
}

// In a sticky folder only the owner of an entry, the owner of the folder and root may remove the entry.
bool isStuck(const RemovalFacts& folder, const RemovalFacts& entry) {
  if ((folder.mode & S_ISVTX) == 0) return false;
  const uid_t user = ::geteuid();
  return user != 0 && user != folder.owner && user != entry.owner;
}

// True when permissions, flags and sticky folders allow the removal of the entry and everything below it. An
// empty folder needs no permission. False with errno set. Adds the number of items to `count`.
bool letsGoOfAll(int parent, const RemovalFacts& parentFacts, const char* name, int depth,
                 std::size_t& count) {
  const auto facts = removalFacts(parent, name);
  if (!facts) return errno == ENOENT;  // removed meanwhile
  ++count;
  if (isStuck(parentFacts, *facts) || facts->isProtected) {
    errno = EPERM;
    return false;
  }
  if (!S_ISDIR(facts->mode)) return true;
  const FileDescriptor inside = openFolder(parent, name);
  const auto names = inside ? namesIn(inside.get()) : std::nullopt;
  if (!names) return errno == ENOENT;
  if (names->empty()) return true;
  if (depth == kDeepestFolder) errno = ENAMETOOLONG;
  if (depth == kDeepestFolder || !mayChange(inside.get())) return false;
  return std::ranges::all_of(*names, [&](const std::string& entry) {
    return letsGoOfAll(inside.get(), *facts, entry.c_str(), depth + 1, count);
  });
}

// The number of items in the entry, itself included.
std::size_t itemCount(int parent, const char* name) {
  const FileDescriptor inside = openFolder(parent, name);
  const auto names = inside ? namesIn(inside.get()) : std::nullopt;
  std::size_t count = 1;
  for (const std::string& entry : names.value_or(std::vector<std::string>{})) {
    count += itemCount(inside.get(), entry.c_str());
  }
  return count;
}

// True for an errno with which a folder can't be renamed but can be emptied in place: a mount point, a folder
// of an overlay's lower layer, a full volume.
bool isOnlyAboutRenaming(int reason) {
  return reason == EBUSY || reason == EXDEV || reason == ENOSPC || reason == EDQUOT;
}

// Calls `removeEntry`. An entry that another process has removed meanwhile is a success.
bool remove(int parent, const char* name, const RemoveEntry& removeEntry) {
  if (removeEntry(name)) return true;
  const int reason = errno;
  const bool isGone = !linkStatus(parent, name) && errno == ENOENT;
  errno = reason;
  return isGone;
}

// A folder with a visible name is renamed first, so that a kill or a failure during the removal leaves no
// partial folder under that name. A folder that is still complete after a failure gets its name back.
bool removeFolder(int parent, const std::string& name, const RemoveEntry& removeEntry) {
  const auto parentFacts = removalFacts(parent, ".");
  std::size_t count = 0;
  if (!parentFacts || !mayChange(parent) || !letsGoOfAll(parent, *parentFacts, name.c_str(), 0, count))
    return false;
  if (name.front() == '.') return remove(parent, name.c_str(), removeEntry);

  const HiddenSibling aside{parent, name, kRemovalPurpose};
  if (!renameWithoutReplacing(parent, name.c_str(), parent, aside.name())) {
    if (errno == ENOENT) return true;
    return isOnlyAboutRenaming(errno) && remove(parent, name.c_str(), removeEntry);
  }
  if (remove(parent, aside.name(), removeEntry)) return true;
  const int reason = errno;
  if (itemCount(parent, aside.name()) == count) {
    (void)renameWithoutReplacing(parent, aside.name(), parent, name.c_str());
  }
  errno = reason;
  return false;
}

}  // namespace

bool removeStaged(int parent, const std::string& name, const RemoveEntry& removeEntry) {
  (void)clearLeftovers(parent, name);
  const auto status = linkStatus(parent, name.c_str());
  if (!status) return false;
  if (S_ISDIR(status->st_mode)) return removeFolder(parent, name, removeEntry);
  return remove(parent, name.c_str(), removeEntry);
}

}  // namespace installer
