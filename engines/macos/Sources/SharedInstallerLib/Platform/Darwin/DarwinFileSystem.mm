// `FileSystem` on NSFileManager and URL resource values.
#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <limits.h>

#include <algorithm>
#include <cerrno>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"
#include "Platform/POSIX/FileErrors.h"
#include "Platform/POSIX/FileTree.h"
#include "Platform/POSIX/StagedCopy.h"
#include "Platform/POSIX/StagedRemoval.h"

namespace installer::darwin {

namespace {

NSFileManager* manager() { return [NSFileManager defaultManager]; }

Path folderOf(const Path& path) {
  const Path parent = parentFolder(path);
  return parent.empty() ? "." : parent;
}

// The error of a path that names nothing: empty, or no text.
std::unexpected<Error> unusable(FileAccess access, const Path& path, std::string_view deed) {
  return fileFailure(access, path.empty() ? ENOENT : EINVAL, path, deed);
}

// A path as Foundation takes it; nil for one that can't be one. Without trailing slashes, which would follow
// a link.
NSString* nameOf(const Path& path) {
  const auto usable = usablePath(path);
  return usable ? nsString(*usable) : nil;
}

// What went wrong with the hidden sibling of an item, as if it had gone wrong with the item.
Error inTheNameOf(const Path& path, const char* sibling, Error problem) {
  const std::string_view hidden{sibling};
  const auto at = problem.localizedDescription.find(hidden);
  if (at != std::string::npos)
    problem.localizedDescription.replace(at, hidden.size(), lastPathComponent(path));
  return problem;
}

class Reader final : public FileReader {
 public:
  explicit Reader(NSFileHandle* handle) : handle_{handle} {}

  Result<std::string> read(std::size_t maximum) override {
    @autoreleasepool {
      NSError* problem = nil;
      NSData* data = [handle_ readDataUpToLength:maximum error:&problem];
      if (data == nil) return failed(problem);
      return bytes(data);
    }
  }

 private:
  NSFileHandle* handle_;
};

// Plain POSIX: a file handle knows no appending in one step.
class Appender final : public FileAppender {
 public:
  Appender(FileDescriptor file, Path path) : file_{std::move(file)}, path_{std::move(path)} {}

  Result<> write(std::string_view bytes) override {
    if (!writeAll(file_.get(), bytes)) return fileFailure(FileAccess::write, errno, path_, "written");
    return {};
  }

 private:
  FileDescriptor file_;
  Path path_;
};

// Nil with errno set.
NSFileHandle* readingHandle(const Path& path) {
  FileDescriptor file = openRegular(path);
  if (!file) return nil;
  return [[NSFileHandle alloc] initWithFileDescriptor:file.release() closeOnDealloc:YES];
}

std::optional<std::int64_t> sizeValue(NSURL* url, NSURLResourceKey key) {
  id value = nil;
  if (![url getResourceValue:&value forKey:key error:nil] || ![value isKindOfClass:[NSNumber class]]) {
    return std::nullopt;
  }
  return [value longLongValue];
}

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

// The directory at `top` as the system names it, behind all links; absent when it can't be opened as one.
std::optional<Path> openableDirectory(const Path& top) {
  const auto usable = usablePath(top);
  const FileDescriptor folder{usable ? open(usable->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1};
  char name[PATH_MAX];
  if (!folder || fcntl(folder.get(), F_GETPATH, name) != 0) return std::nullopt;
  return Path{name};
}

// The last `level` names of `path`, below `top`. The system's own enumeration resolves the links on the way
// to what it enumerates, and may spell its name in another way.
Path below(const Path& top, const Path& path, NSUInteger level) {
  std::size_t start = path.size();
  for (; level > 0 && start != 0; --level) start = path.rfind('/', start - 1);
  return start < path.size() ? joined(top, path.substr(start + 1)) : top;
}

NSUInteger namesIn(const Path& path) { return static_cast<NSUInteger>(std::ranges::count(path, '/')); }

bool crossesVolumes(const Path& source, const Path& destination) {
  const auto from = linkStatus(AT_FDCWD, source.c_str());
  const auto to = linkStatus(AT_FDCWD, folderOf(destination).c_str());
  return from && to && from->st_dev != to->st_dev;
}

class DarwinFileSystem final : public FileSystem {
 public:
  bool fileExists(const Path& path) override {
    @autoreleasepool {
      NSString* name = nsString(path);
      return name != nil && [manager() fileExistsAtPath:name];
    }
  }

  bool directoryExists(const Path& path) override {
    @autoreleasepool {
      NSString* name = nsString(path);
      BOOL isDirectory = NO;
      return name != nil && [manager() fileExistsAtPath:name isDirectory:&isDirectory] && isDirectory;
    }
  }

  bool isWritable(const Path& path) override {
    @autoreleasepool {
      NSString* name = nsString(path);
      return name != nil && [manager() isWritableFileAtPath:name];
    }
  }

  bool isExecutable(const Path& path) override {
    @autoreleasepool {
      NSString* name = nsString(path);
      return name != nil && [manager() isExecutableFileAtPath:name];
    }
  }

  Result<std::vector<std::string>> contentsOfDirectory(const Path& path) override {
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

  Result<FileAttributes> attributes(const Path& path) override {
    @autoreleasepool {
      NSString* name = nameOf(path);
      if (name == nil) return unusable(FileAccess::read, path, "examined");
      NSError* problem = nil;
      NSDictionary* found = [manager() attributesOfItemAtPath:name error:&problem];
      if (found == nil) return failed(problem);
      return FileAttributes{[found[NSFileSize] longLongValue]};
    }
  }

  // NSFileManager copies item by item and leaves what it had copied when it fails; the hidden sibling and the
  // rename make it all or nothing.
  Result<> copyItem(const Path& source, const Path& destination) override {
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

  Result<> moveItem(const Path& source, const Path& destination) override {
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
      if (crossesVolumes(source, destination)) {
        if (auto made = copyItem(source, destination); !made) return made;
        // The copy is whole and stays even if the original can't be removed entirely: it may be all there is.
        return removeItem(source);
      }
      NSError* problem = nil;
      if ([manager() moveItemAtPath:from toPath:to error:&problem]) return {};
      return failed(problem);
    }
  }

  Result<> removeItem(const Path& path) override {
    @autoreleasepool {
      const auto usable = usablePath(path);
      // The root isn't an item; removing it would begin with everything in it.
      if (usable == "/") return fileFailure(FileAccess::write, EPERM, path, kRemoved);
      if (!usable || nsString(*usable) == nil) return unusable(FileAccess::write, path, kRemoved);
      const Path parent = folderOf(*usable);
      const FileDescriptor folder{open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
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

  Result<> createDirectory(const Path& path, Intermediates intermediates) override {
    @autoreleasepool {
      NSString* name = nameOf(path);
      if (name == nil) return unusable(FileAccess::write, path, "created");
      NSError* problem = nil;
      if ([manager() createDirectoryAtPath:name
               withIntermediateDirectories:intermediates == Intermediates::create
                                attributes:nil
                                     error:&problem]) {
        return {};
      }
      return failed(problem);
    }
  }

  Result<std::string> readFile(const Path& path) override {
    @autoreleasepool {
      NSFileHandle* handle = readingHandle(path);
      if (handle == nil) return fileFailure(FileAccess::read, errno, path, "read");
      NSError* problem = nil;
      NSData* data = [handle readDataToEndOfFileAndReturnError:&problem];
      if (data == nil) return failed(problem);
      return bytes(data);
    }
  }

  Result<> writeFile(const Path& path, std::string_view bytes) override {
    @autoreleasepool {
      NSString* name = nameOf(path);
      if (name == nil) return unusable(FileAccess::write, path, "written");
      NSError* problem = nil;
      if ([nsData(bytes) writeToFile:name options:NSDataWritingAtomic error:&problem]) return {};
      return failed(problem);
    }
  }

  Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override {
    @autoreleasepool {
      NSFileHandle* handle = readingHandle(path);
      if (handle == nil) return fileFailure(FileAccess::read, errno, path, "opened");
      return std::make_unique<Reader>(handle);
    }
  }

  Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) override {
    const auto usable = usablePath(path);
    FileDescriptor file{usable ? open(usable->c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK) : -1};
    if (!file) return fileFailure(FileAccess::write, errno, path, "opened");
    return std::make_unique<Appender>(std::move(file), path);
  }

  bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                 const ErrorHandler& onError) override {
    @autoreleasepool {
      const auto real = openableDirectory(top);
      NSURL* url = real ? fileURL(*real) : nil;
      if (url == nil) return false;
      const Path shown = *usablePath(top);
      const NSUInteger depth = namesIn(text(url.path));
      NSDirectoryEnumerator<NSURL*>* entries =
          entriesBelow(url, hidden, ^BOOL(NSURL* failing, NSError* problem) {
            const Path path = text(failing.path);
            if (onError)
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

  std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) override {
    @autoreleasepool {
      NSURL* url = fileURL(path);
      return url != nil ? sizeValue(url, NSURLVolumeAvailableCapacityKey) : std::nullopt;
    }
  }

  std::optional<std::int64_t> fileSystemFreeSize(const Path& path) override {
    @autoreleasepool {
      NSString* name = nameOf(path);
      if (name == nil) return std::nullopt;
      id value = [manager() attributesOfFileSystemForPath:name error:nil][NSFileSystemFreeSize];
      if (![value isKindOfClass:[NSNumber class]]) return std::nullopt;
      return [value longLongValue];
    }
  }

 private:
  static constexpr std::string_view kCopied = "copied";
  static constexpr std::string_view kMoved = "moved";
  static constexpr std::string_view kRemoved = "removed";

  static Result<> copyStaged(NSString* from, const Path& destination) {
    const Path parent = folderOf(destination);
    const FileDescriptor folder{open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!folder) return fileFailure(FileAccess::write, errno, destination, kCopied);
    StagedCopy staged{folder.get(), lastPathComponent(destination)};
    staged.clearLeftovers();
    NSError* problem = nil;
    if (![manager() copyItemAtPath:from
                            toPath:nsString(joined(parent, staged.stagingName()))
                             error:&problem]) {
      return std::unexpected(inTheNameOf(destination, staged.stagingName(), error(problem)));
    }
    if (!staged.commit()) return fileFailure(FileAccess::write, errno, destination, kCopied);
    return {};
  }

  static NSDirectoryEnumerator<NSURL*>* entriesBelow(NSURL* url, HiddenEntries hidden,
                                                     BOOL (^onError)(NSURL*, NSError*)) {
    NSArray<NSURLResourceKey>* keys = @[
      NSURLTotalFileAllocatedSizeKey, NSURLFileAllocatedSizeKey, NSURLIsRegularFileKey, NSURLIsDirectoryKey,
      NSURLIsSymbolicLinkKey
    ];
    const NSDirectoryEnumerationOptions options =
        hidden == HiddenEntries::skip ? NSDirectoryEnumerationSkipsHiddenFiles : 0;
    return [manager() enumeratorAtURL:url
           includingPropertiesForKeys:keys
                              options:options
                         errorHandler:onError];
  }
};

}  // namespace

std::unique_ptr<FileSystem> makeFileSystem() { return std::make_unique<DarwinFileSystem>(); }

}  // namespace installer::darwin
