#include <fcntl.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/StagedCopy.h"
#include "Platform/Linux/Files/TreeCopier.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/POSIX/POSIXFileSystem.h"

namespace installer {

namespace {

constexpr auto copied = "copied";

Path folderOf(const Path& path) {
  const Path parent = parentFolder(path);
  return parent.empty() ? "." : parent;
}

}  // namespace

Result<> LinuxFileSystem::copyItem(const Path& source, const Path& destination) {
  const auto from = usablePath(source);
  if (!from || !linkStatus(AT_FDCWD, from->c_str())) {
    return fileFailure(FileAccess::read, errno, source, copied);
  }
  const auto to = usablePath(destination);
  if (!to) return fileFailure(FileAccess::write, errno, destination, copied);
  if (linkStatus(AT_FDCWD, to->c_str())) return fileFailure(FileAccess::write, EEXIST, destination, copied);
  const FileDescriptor folder{::open(folderOf(*to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!folder) return fileFailure(FileAccess::write, errno, destination, copied);

  StagedCopy staged{folder.get(), lastPathComponent(*to)};
  TreeCopier copier;
  if (!copier.copy(AT_FDCWD, from->c_str(), folder.get(), staged.stagingName())) {
    return copier.failedReading() ? fileFailure(FileAccess::read, errno, source, copied)
                                  : fileFailure(FileAccess::write, errno, destination, copied);
  }
  if (!staged.commit()) return fileFailure(FileAccess::write, errno, destination, copied);
  return {};
}

Result<> LinuxFileSystem::moveItem(const Path& source, const Path& destination) {
  return moveByRename(*this, source, destination);
}

}  // namespace installer
