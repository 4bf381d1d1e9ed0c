#include <fcntl.h>
#include <sys/stat.h>

#include "Platform/Linux/FileErrors.h"
#include "Platform/Linux/FileTree.h"
#include "Platform/Linux/HiddenSibling.h"
#include "Platform/Linux/LinuxFileSystem.h"
#include "Platform/Linux/StagedCopy.h"

namespace installer {

namespace {

bool removeContents(int folder, TreeOwner owner, int depth) {
  const auto names = namesIn(folder);
  if (!names) return false;
  for (const std::string& name : *names) {
    // Somebody else may be removing the same tree: what has gone meanwhile is as good as removed.
    if (!removeTree(folder, name.c_str(), owner, depth) && errno != ENOENT) return false;
  }
  return true;
}

// The parent by descriptor and the name in it, so that the last component isn't followed.
FileDescriptor openParent(const Path& path) {
  const Path parent = parentFolder(path);
  return FileDescriptor{::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
}

bool isFolder(int parent, const char* name) {
  const auto status = linkStatus(parent, name);
  return status && S_ISDIR(status->st_mode);
}

// A folder is put aside first, so that a kill in mid-removal leaves nothing half under its name. What can't
// be removed goes back, as far as it is still there.
bool removeFolder(int parent, const std::string& name) {
  const HiddenSibling aside{parent, name, "kelo-remove"};
  aside.clearLeftovers();
  if (!renameWithoutReplacing(parent, name.c_str(), parent, aside.name())) {
    // A mount point can't be put aside; it is emptied where it stands.
    return errno == EBUSY && removeTree(parent, name.c_str(), TreeOwner::anyone);
  }
  if (removeTree(parent, aside.name(), TreeOwner::anyone)) return true;
  const int reason = errno;
  (void)renameWithoutReplacing(parent, aside.name(), parent, name.c_str());
  errno = reason;
  return false;
}

bool removeAny(int parent, const std::string& name) {
  if (isFolder(parent, name.c_str())) return removeFolder(parent, name);
  return removeTree(parent, name.c_str(), TreeOwner::anyone);
}

}  // namespace

bool removeTree(int folder, const char* name, TreeOwner owner, int depth) {
  if (::unlinkat(folder, name, 0) == 0) return true;
  // A directory says EISDIR on Linux and EPERM elsewhere; what it really is decides.
  const int refusal = errno;
  const auto status = linkStatus(folder, name);
  if (!status) return false;
  if (!S_ISDIR(status->st_mode)) {
    errno = refusal;
    return false;
  }
  if (::unlinkat(folder, name, AT_REMOVEDIR) == 0) return true;
  if (errno != ENOTEMPTY && errno != EEXIST) return false;
  if (depth == deepestFolder) {
    errno = ENAMETOOLONG;
    return false;
  }
  if (owner == TreeOwner::ours && (status->st_mode & S_IRWXU) != S_IRWXU &&
      ::fchmodat(folder, name, S_IRWXU, 0) != 0) {
    return false;
  }
  const FileDescriptor inside = openFolder(folder, name);
  if (!inside || !removeContents(inside.get(), owner, depth + 1)) return false;
  return ::unlinkat(folder, name, AT_REMOVEDIR) == 0;
}

Result<> LinuxFileSystem::removeItem(const Path& path) {
  const auto usable = usablePath(path);
  // The root isn't an item; removing it would begin with everything in it.
  if (usable == "/") return fileFailure(FileAccess::write, EPERM, path, "removed");
  if (!usable) return fileFailure(FileAccess::write, errno, path, "removed");
  const FileDescriptor parent = openParent(*usable);
  if (!parent || !removeAny(parent.get(), lastPathComponent(*usable))) {
    return fileFailure(FileAccess::write, errno, path, "removed");
  }
  return {};
}

}  // namespace installer
