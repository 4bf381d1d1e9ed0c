#include <fcntl.h>
#include <sys/stat.h>

#include "Platform/Linux/LinuxFileSystem.h"
#include "Platform/Linux/StagedCopy.h"
#include "Platform/POSIX/FileErrors.h"
#include "Platform/POSIX/FileTree.h"
#include "Platform/POSIX/HiddenSibling.h"

namespace installer {

namespace {

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
