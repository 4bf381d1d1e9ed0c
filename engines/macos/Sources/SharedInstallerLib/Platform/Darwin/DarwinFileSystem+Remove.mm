#include <cerrno>
#include <fcntl.h>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/POSIX/StagedRemoval.h"
#import "Platform/Darwin/DarwinFileSystem.h"
#import "Platform/Darwin/DarwinFoundation.h"

namespace installer::darwin {

namespace {

constexpr std::string_view kRemoved = "removed";

}  // namespace

Result<> DarwinFileSystem::removeItem(const Path& path) {
  @autoreleasepool {
    const auto usable = usablePath(path);
    // The root can't be removed, but its contents would be removed first.
    if (usable == "/") return fileFailure(FileAccess::write, EPERM, path, kRemoved);
    if (!usable || nsString(*usable) == nil) return unusable(FileAccess::write, path, kRemoved);
    const Path parent = folderOf(*usable);
    const FileDescriptor folder{open(parent.c_str(), O_SEARCH | O_CLOEXEC)};
    if (!folder) return fileFailure(FileAccess::write, errno, path, kRemoved);
    std::optional<Error> told;
    const auto removeEntry = [&](const char* name) {
      NSError* problem = nil;
      if ([manager() removeItemAtPath:nsString(joined(parent, name)) error:&problem]) return true;
      told = inTheNameOf(path, name, error(problem));
      return false;
    };
    if (removeStaged(folder.get(), lastPathComponent(*usable), removeEntry)) return {};
    if (told) return std::unexpected(*told);
    return fileFailure(FileAccess::write, errno, path, kRemoved);
  }
}

bool DarwinFileSystem::clearLeftovers(const Path& path) {
  const auto usable = usablePath(path);
  if (!usable) return false;
  const FileDescriptor folder{open(folderOf(*usable).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  return folder && installer::clearLeftovers(folder.get(), lastPathComponent(*usable));
}

}  // namespace installer::darwin
