#include <fcntl.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/POSIX/StagedRemoval.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

// The parent folder's descriptor. The removal by name below it doesn't follow a link.
FileDescriptor openParent(const Path& path) {
  const Path parent = parentFolder(path);
  return FileDescriptor{::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
}

}  // namespace

Result<> LinuxFileSystem::removeItem(const Path& path) {
  const auto usable = usablePath(path);
  // The root can't be removed, but its contents would be removed first.
  if (usable == "/") return fileFailure(FileAccess::write, EPERM, path, "removed");
  if (!usable) return fileFailure(FileAccess::write, errno, path, "removed");
  const FileDescriptor parent = openParent(*usable);
  const auto remove = [&parent](const char* name) {
    return removeTree(parent.get(), name, TreeOwner::anyone);
  };
  if (!parent || !removeStaged(parent.get(), lastPathComponent(*usable), remove)) {
    return fileFailure(FileAccess::write, errno, path, "removed");
  }
  return {};
}

bool LinuxFileSystem::clearLeftovers(const Path& path) {
  const auto usable = usablePath(path);
  const FileDescriptor parent = usable ? openParent(*usable) : FileDescriptor{};
  return parent && installer::clearLeftovers(parent.get(), lastPathComponent(*usable));
}

}  // namespace installer
