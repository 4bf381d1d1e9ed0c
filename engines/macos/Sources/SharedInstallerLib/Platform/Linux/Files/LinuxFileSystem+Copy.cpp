#include <fcntl.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/StagedCopy.h"
#include "Platform/Linux/Files/TreeCopier.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

constexpr auto kCopied = "copied";

Path folderOf(const Path& path) {
  const Path parent = parentFolder(path);
  return parent.empty() ? "." : parent;
}

}  // namespace

Result<> LinuxFileSystem::copyItem(const Path& source, const Path& destination) {
  const auto from = usablePath(source);
  if (!from || !linkStatus(AT_FDCWD, from->c_str())) {
    return fileFailure(FileAccess::read, errno, source, kCopied);
  }
  const auto to = usablePath(destination);
  if (!to) return fileFailure(FileAccess::write, errno, destination, kCopied);
  if (linkStatus(AT_FDCWD, to->c_str())) return fileFailure(FileAccess::write, EEXIST, destination, kCopied);
  const FileDescriptor folder{::open(folderOf(*to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!folder) return fileFailure(FileAccess::write, errno, destination, kCopied);

  StagedCopy staged{folder.get(), lastPathComponent(*to)};
  TreeCopier copier;
  if (!copier.copy(AT_FDCWD, from->c_str(), folder.get(), staged.stagingName())) {
    return copier.failedReading() ? fileFailure(FileAccess::read, errno, source, kCopied)
                                  : fileFailure(FileAccess::write, errno, destination, kCopied);
  }
  if (!staged.commit(copier.made())) return fileFailure(FileAccess::write, errno, destination, kCopied);
  return {};
}

}  // namespace installer
