#import "Platform/Darwin/DarwinFileSystem.h"

#include <cerrno>
#include <fcntl.h>

#include "Base/POSIX/FileTree.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

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

// Nil with errno set.
NSFileHandle* readingHandle(const Path& path) {
  FileDescriptor file = openRegular(path);
  if (!file) return nil;
  return [[NSFileHandle alloc] initWithFileDescriptor:file.release() closeOnDealloc:YES];
}

}  // namespace

NSFileManager* manager() {
  return [NSFileManager defaultManager];
}

NSString* nameOf(const Path& path) {
  const auto usable = usablePath(path);
  return usable ? nsString(*usable) : nil;
}

std::unexpected<Error> unusable(FileAccess access, const Path& path, std::string_view deed) {
  return fileFailure(access, path.empty() ? ENOENT : EINVAL, path, deed);
}

Path folderOf(const Path& path) {
  const Path parent = parentFolder(path);
  return parent.empty() ? "." : parent;
}

Error inTheNameOf(const Path& path, const char* sibling, Error problem) {
  const std::string_view hidden{sibling};
  const auto at = problem.localizedDescription.find(hidden);
  if (at == std::string::npos) return problem;
  problem.localizedDescription.replace(at, hidden.size(), lastPathComponent(path));
  return problem;
}

std::optional<std::int64_t> sizeValue(NSURL* url, NSURLResourceKey key) {
  id value = nil;
  if (![url getResourceValue:&value forKey:key error:nil] || ![value isKindOfClass:[NSNumber class]]) {
    return std::nullopt;
  }
  return [value longLongValue];
}

bool DarwinFileSystem::fileExists(const Path& path) {
  @autoreleasepool {
    NSString* name = nsString(path);
    return name != nil && [manager() fileExistsAtPath:name];
  }
}

bool DarwinFileSystem::directoryExists(const Path& path) {
  @autoreleasepool {
    NSString* name = nsString(path);
    BOOL isDirectory = NO;
    return name != nil && [manager() fileExistsAtPath:name isDirectory:&isDirectory] && isDirectory;
  }
}

bool DarwinFileSystem::isWritable(const Path& path) {
  @autoreleasepool {
    NSString* name = nsString(path);
    return name != nil && [manager() isWritableFileAtPath:name];
  }
}

bool DarwinFileSystem::isExecutable(const Path& path) {
  @autoreleasepool {
    NSString* name = nsString(path);
    return name != nil && [manager() isExecutableFileAtPath:name];
  }
}

Result<FileAttributes> DarwinFileSystem::attributes(const Path& path) {
  @autoreleasepool {
    NSString* name = nameOf(path);
    if (name == nil) return unusable(FileAccess::read, path, "examined");
    NSError* problem = nil;
    NSDictionary* found = [manager() attributesOfItemAtPath:name error:&problem];
    if (found == nil) return failed(problem);
    const auto status = linkStatus(AT_FDCWD, usablePath(path)->c_str());
    return FileAttributes{.size = [found[NSFileSize] longLongValue],
                          .isSymbolicLink = status && S_ISLNK(status->st_mode),
                          .identity = status ? identityOf(*status) : FileIdentity{}};
  }
}

Result<> DarwinFileSystem::createDirectory(const Path& path, Intermediates intermediates) {
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

Result<std::string> DarwinFileSystem::readFile(const Path& path) {
  @autoreleasepool {
    NSFileHandle* handle = readingHandle(path);
    if (handle == nil) return fileFailure(FileAccess::read, errno, path, "read");
    NSError* problem = nil;
    NSData* data = [handle readDataToEndOfFileAndReturnError:&problem];
    if (data == nil) return failed(problem);
    return bytes(data);
  }
}

Result<> DarwinFileSystem::writeFile(const Path& path, std::string_view bytes) {
  @autoreleasepool {
    NSString* name = nameOf(path);
    if (name == nil) return unusable(FileAccess::write, path, "written");
    NSError* problem = nil;
    if ([nsData(bytes) writeToFile:name options:NSDataWritingAtomic error:&problem]) return {};
    return failed(problem);
  }
}

Result<std::unique_ptr<FileReader>> DarwinFileSystem::openForReading(const Path& path) {
  @autoreleasepool {
    NSFileHandle* handle = readingHandle(path);
    if (handle == nil) return fileFailure(FileAccess::read, errno, path, "opened");
    return std::make_unique<Reader>(handle);
  }
}

std::optional<std::int64_t> DarwinFileSystem::volumeAvailableCapacity(const Path& path) {
  @autoreleasepool {
    NSURL* url = fileURL(path);
    return url != nil ? sizeValue(url, NSURLVolumeAvailableCapacityKey) : std::nullopt;
  }
}

std::optional<std::int64_t> DarwinFileSystem::fileSystemFreeSize(const Path& path) {
  @autoreleasepool {
    NSString* name = nameOf(path);
    if (name == nil) return std::nullopt;
    id value = [manager() attributesOfFileSystemForPath:name error:nil][NSFileSystemFreeSize];
    if (![value isKindOfClass:[NSNumber class]]) return std::nullopt;
    return [value longLongValue];
  }
}

std::unique_ptr<FileSystem> makeFileSystem() {
  return std::make_unique<DarwinFileSystem>();
}

}  // namespace installer::darwin
