#include <fcntl.h>

#include <cerrno>

#import "Platform/Darwin/DarwinFileSystem.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/POSIX/FileTree.h"
#include "Platform/POSIX/StagedCopy.h"

namespace installer::darwin {

namespace {

constexpr std::string_view kCopied = "copied";
constexpr std::string_view kMoved = "moved";

bool crossesVolumes(const Path& source, const Path& destination) {
  const auto from = linkStatus(AT_FDCWD, source.c_str());
  const auto to = linkStatus(AT_FDCWD, folderOf(destination).c_str());
  return from && to && from->st_dev != to->st_dev;
}

Result<> copyStaged(NSString* from, const Path& destination) {
  const Path parent = folderOf(destination);
  const FileDescriptor folder{open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!folder) return fileFailure(FileAccess::write, errno, destination, kCopied);
  StagedCopy staged{folder.get(), lastPathComponent(destination)};
  NSError* problem = nil;
  if (![manager() copyItemAtPath:from toPath:nsString(joined(parent, staged.stagingName())) error:&problem]) {
    return std::unexpected(inTheNameOf(destination, staged.stagingName(), error(problem)));
  }
  if (!staged.commit()) return fileFailure(FileAccess::write, errno, destination, kCopied);
  return {};
}

}  // namespace

// NSFileManager copies item by item and leaves what it had copied when it fails; the hidden sibling and the
// rename make it all or nothing.
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

Result<> DarwinFileSystem::moveItem(const Path& source, const Path& destination) {
  @autoreleasepool {
    NSString* from = nameOf(source);
    NSString* to = nameOf(destination);
    if (from == nil) return unusable(FileAccess::write, source, kMoved);
    if (to == nil) return unusable(FileAccess::write, destination, kMoved);
    // A link that leads nowhere is something as well.
    if (linkStatus(AT_FDCWD, usablePath(source)->c_str()) &&
        linkStatus(AT_FDCWD, usablePath(destination)->c_str())) {
      return fileFailure(FileAccess::write, EEXIST, destination, kMoved);
    }
    // The system's own move would copy to the destination's name piece by piece.
    if (crossesVolumes(*usablePath(source), *usablePath(destination))) {
      if (auto made = copyItem(source, destination); !made) return made;
      // The copy is whole and stays even if the original can't be removed entirely: it may be all there is.
      return removeItem(source);
    }
    NSError* problem = nil;
    if ([manager() moveItemAtPath:from toPath:to error:&problem]) return {};
    return failed(problem);
  }
}

}  // namespace installer::darwin
