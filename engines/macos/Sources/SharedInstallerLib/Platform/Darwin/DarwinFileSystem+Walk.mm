#include <algorithm>
#include <fcntl.h>
#include <limits.h>

#include "Base/POSIX/FileTree.h"
#import "Platform/Darwin/DarwinFileSystem.h"
#import "Platform/Darwin/DarwinFoundation.h"

namespace installer::darwin {

namespace {

std::optional<bool> flagValue(NSURL* url, NSURLResourceKey key) {
  id value = nil;
  if (![url getResourceValue:&value forKey:key error:nil] || ![value isKindOfClass:[NSNumber class]]) {
    return std::nullopt;
  }
  return [value boolValue] == YES;
}

// Absent when one of the properties can't be read.
std::optional<DirectoryEntry> entryAt(NSURL* url, Path path) {
  const auto isDirectory = flagValue(url, NSURLIsDirectoryKey);
  const auto isLink = flagValue(url, NSURLIsSymbolicLinkKey);
  const auto isRegular = flagValue(url, NSURLIsRegularFileKey);
  if (!isDirectory || !isLink || !isRegular) return std::nullopt;
  DirectoryEntry entry;
  entry.path = std::move(path);
  entry.isDirectory = *isDirectory;
  entry.isSymbolicLink = *isLink;
  entry.isRegularFile = *isRegular;
  entry.totalFileAllocatedSize = sizeValue(url, NSURLTotalFileAllocatedSizeKey);
  entry.fileAllocatedSize = sizeValue(url, NSURLFileAllocatedSizeKey);
  return entry;
}

// The canonical path of the directory at `top`, with all links resolved; absent when it can't be opened as a
// directory.
std::optional<Path> openableDirectory(const Path& top) {
  const auto usable = usablePath(top);
  const FileDescriptor folder{usable ? open(usable->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1};
  char name[PATH_MAX];
  if (!folder || fcntl(folder.get(), F_GETPATH, name) != 0) return std::nullopt;
  return Path{name};
}

// The last `level` names of `path`, below `top`. The system's enumeration resolves the links in the path of
// its root, and may spell the root differently.
Path below(const Path& top, const Path& path, NSUInteger level) {
  std::size_t start = path.size();
  for (; level > 0 && start != 0; --level) start = path.rfind('/', start - 1);
  return start < path.size() ? joined(top, path.substr(start + 1)) : top;
}

NSUInteger namesIn(const Path& path) {
  return static_cast<NSUInteger>(std::ranges::count(path, '/'));
}

NSDirectoryEnumerator<NSURL*>* entriesBelow(NSURL* url, HiddenEntries hidden,
                                            BOOL (^onError)(NSURL*, NSError*)) {
  NSArray<NSURLResourceKey>* keys = @[
    NSURLTotalFileAllocatedSizeKey, NSURLFileAllocatedSizeKey, NSURLIsRegularFileKey, NSURLIsDirectoryKey,
    NSURLIsSymbolicLinkKey
  ];
  const NSDirectoryEnumerationOptions options =
      hidden == HiddenEntries::skip ? NSDirectoryEnumerationSkipsHiddenFiles : 0;
  return [manager() enumeratorAtURL:url includingPropertiesForKeys:keys options:options errorHandler:onError];
}

}  // namespace

Result<std::vector<std::string>> DarwinFileSystem::contentsOfDirectory(const Path& path) {
  @autoreleasepool {
    NSString* folder = nameOf(path);
    if (folder == nil) return unusable(FileAccess::read, path, "listed");
    NSError* problem = nil;
    NSArray<NSString*>* names = [manager() contentsOfDirectoryAtPath:folder error:&problem];
    if (names == nil) return failed(problem);
    std::vector<std::string> found;
    for (NSString* name in names) found.push_back(text(name));
    return found;
  }
}

bool DarwinFileSystem::enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                                 const ErrorHandler& onError) {
  @autoreleasepool {
    const auto real = openableDirectory(top);
    NSURL* url = real ? fileURL(*real) : nil;
    if (url == nil) return false;
    const Path shown = *usablePath(top);
    const NSUInteger depth = namesIn(text(url.path));
    NSDirectoryEnumerator<NSURL*>* entries =
        entriesBelow(url, hidden, ^BOOL(NSURL* failing, NSError* problem) {
          if (!onError) return YES;
          const Path path = text(failing.path);
          onError(below(shown, path, namesIn(path) - std::min(namesIn(path), depth)), error(problem));
          return YES;
        });
    if (entries == nil) return false;
    for (NSURL* found in entries) {
      @autoreleasepool {
        const auto entry = entryAt(found, below(shown, text(found.path), entries.level));
        if (entry && visit(*entry) == Descend::no) [entries skipDescendants];
      }
    }
    return true;
  }
}

}  // namespace installer::darwin
