#include <cerrno>
#include <fcntl.h>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/StagedCopy.h"
#import "Platform/Darwin/DarwinFileSystem.h"
#import "Platform/Darwin/DarwinFoundation.h"

namespace installer::darwin {

namespace {

constexpr std::string_view kCopied = "copied";

Result<> copyStaged(NSString* from, const Path& destination) {
  const Path parent = folderOf(destination);
  const FileDescriptor folder{open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!folder) return fileFailure(FileAccess::write, errno, destination, kCopied);
  StagedCopy staged{folder.get(), lastPathComponent(destination)};
  NSError* problem = nil;
  if (![manager() copyItemAtPath:from toPath:nsString(joined(parent, staged.stagingName())) error:&problem]) {
    return std::unexpected(inTheNameOf(destination, staged.stagingName(), error(problem)));
  }
  const auto made = linkStatus(folder.get(), staged.stagingName());
  if (!made || !staged.commit(*made)) return fileFailure(FileAccess::write, errno, destination, kCopied);
  return {};
}

}  // namespace

// NSFileManager copies item by item and leaves a partial copy when it fails; the hidden sibling and the
// rename make the copy atomic.
Result<> DarwinFileSystem::copyItem(const Path& source, const Path& destination) {
  @autoreleasepool {
    NSString* from = nameOf(source);
    if (from == nil) return unusable(FileAccess::read, source, kCopied);
    if (!linkStatus(AT_FDCWD, usablePath(source)->c_str())) {
      return fileFailure(FileAccess::read, errno, source, kCopied);
    }
    const auto to = usablePath(destination);
    if (!to || nsString(*to) == nil) return unusable(FileAccess::write, destination, kCopied);
    if (linkStatus(AT_FDCWD, to->c_str())) {
      return fileFailure(FileAccess::write, EEXIST, destination, kCopied);
    }
    return copyStaged(from, *to);
  }
}

}  // namespace installer::darwin
