// `FileSystem` on NSFileManager and URL resource values.
#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

std::unexpected<Error> posixFailure(int number, const Path& path) {
  return failure(ErrorDomain::posix, number, lastPathComponent(path) + ": " + std::strerror(number));
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

class Appender final : public FileAppender {
 public:
  Appender(int descriptor, Path path) : descriptor_{descriptor}, path_{std::move(path)} {}
  ~Appender() override { close(descriptor_); }
  Appender(const Appender&) = delete;
  Appender& operator=(const Appender&) = delete;

  // Opened with O_APPEND, one write is one piece towards other appenders; only a volume that fills up in
  // mid-write makes a second one necessary.
  Result<> write(std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return posixFailure(errno, path_);
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
  }

 private:
  int descriptor_;
  Path path_;
};

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
std::optional<DirectoryEntry> entryAt(NSURL* url) {
  const auto isDirectory = flagValue(url, NSURLIsDirectoryKey);
  const auto isLink = flagValue(url, NSURLIsSymbolicLinkKey);
  const auto isRegular = flagValue(url, NSURLIsRegularFileKey);
  if (!isDirectory || !isLink || !isRegular) return std::nullopt;
  DirectoryEntry entry;
  entry.path = text(url.path);
  entry.isDirectory = *isDirectory;
  entry.isSymbolicLink = *isLink;
  entry.isRegularFile = *isRegular;
  entry.totalFileAllocatedSize = sizeValue(url, NSURLTotalFileAllocatedSizeKey);
  entry.fileAllocatedSize = sizeValue(url, NSURLFileAllocatedSizeKey);
  return entry;
}

class DarwinFileSystem final : public FileSystem {
 public:
  bool fileExists(const Path& path) override { return [manager() fileExistsAtPath:nsString(path)]; }

  bool directoryExists(const Path& path) override {
    BOOL isDirectory = NO;
    return [manager() fileExistsAtPath:nsString(path) isDirectory:&isDirectory] && isDirectory;
  }

  bool isWritable(const Path& path) override { return [manager() isWritableFileAtPath:nsString(path)]; }
  bool isExecutable(const Path& path) override { return [manager() isExecutableFileAtPath:nsString(path)]; }

  Result<std::vector<std::string>> contentsOfDirectory(const Path& path) override {
    @autoreleasepool {
      NSError* problem = nil;
      NSArray<NSString*>* names = [manager() contentsOfDirectoryAtPath:nsString(path) error:&problem];
      if (names == nil) return failed(problem);
      std::vector<std::string> found;
      for (NSString* name in names) found.push_back(text(name));
      return found;
    }
  }

  Result<FileAttributes> attributes(const Path& path) override {
    @autoreleasepool {
      NSError* problem = nil;
      NSDictionary* found = [manager() attributesOfItemAtPath:nsString(path) error:&problem];
      if (found == nil) return failed(problem);
      return FileAttributes{[found[NSFileSize] longLongValue]};
    }
  }

  // NSFileManager copies item by item and leaves what it had copied when it fails; the hidden sibling and the
  // rename make it all or nothing.
  Result<> copyItem(const Path& source, const Path& destination) override {
    @autoreleasepool {
      if ([manager() fileExistsAtPath:nsString(destination)]) {
        return failure(ErrorDomain::cocoa, CocoaError::fileWriteFileExists,
                       "“" + lastPathComponent(destination) +
                           "” couldn’t be copied because an item with the same name already exists.");
      }
      const Path growing = joined(parentFolder(destination), "." + lastPathComponent(destination) +
                                                                 ".kelo-copy-" + std::to_string(getpid()));
      [manager() removeItemAtPath:nsString(growing) error:nil];
      NSError* problem = nil;
      if ([manager() copyItemAtPath:nsString(source) toPath:nsString(growing) error:&problem] &&
          [manager() moveItemAtPath:nsString(growing) toPath:nsString(destination) error:&problem]) {
        return {};
      }
      [manager() removeItemAtPath:nsString(growing) error:nil];
      return failed(problem);
    }
  }

  Result<> moveItem(const Path& source, const Path& destination) override {
    @autoreleasepool {
      NSError* problem = nil;
      if ([manager() moveItemAtPath:nsString(source) toPath:nsString(destination) error:&problem]) return {};
      return failed(problem);
    }
  }

  Result<> removeItem(const Path& path) override {
    @autoreleasepool {
      NSError* problem = nil;
      if ([manager() removeItemAtPath:nsString(path) error:&problem]) return {};
      return failed(problem);
    }
  }

  Result<> createDirectory(const Path& path, Intermediates intermediates) override {
    @autoreleasepool {
      NSError* problem = nil;
      if ([manager() createDirectoryAtPath:nsString(path)
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
      NSError* problem = nil;
      NSData* data = [NSData dataWithContentsOfFile:nsString(path) options:0 error:&problem];
      if (data == nil) return failed(problem);
      return bytes(data);
    }
  }

  Result<> writeFile(const Path& path, std::string_view bytes) override {
    @autoreleasepool {
      NSError* problem = nil;
      if ([nsData(bytes) writeToFile:nsString(path) options:NSDataWritingAtomic error:&problem]) return {};
      return failed(problem);
    }
  }

  Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override {
    @autoreleasepool {
      NSError* problem = nil;
      NSFileHandle* handle = [NSFileHandle fileHandleForReadingFromURL:fileURL(path) error:&problem];
      if (handle == nil) return failed(problem);
      return std::make_unique<Reader>(handle);
    }
  }

  Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) override {
    const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (descriptor < 0) return posixFailure(errno, path);
    return std::make_unique<Appender>(descriptor, path);
  }

  bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                 const ErrorHandler& onError) override {
    if (!directoryExists(top)) return false;
    NSArray<NSURLResourceKey>* keys = @[
      NSURLTotalFileAllocatedSizeKey, NSURLFileAllocatedSizeKey, NSURLIsRegularFileKey, NSURLIsDirectoryKey,
      NSURLIsSymbolicLinkKey
    ];
    const NSDirectoryEnumerationOptions options =
        hidden == HiddenEntries::skip ? NSDirectoryEnumerationSkipsHiddenFiles : 0;
    NSDirectoryEnumerator<NSURL*>* entries = [manager() enumeratorAtURL:fileURL(top)
                                             includingPropertiesForKeys:keys
                                                                options:options
                                                           errorHandler:^BOOL(NSURL* url, NSError* problem) {
                                                             if (onError)
                                                               onError(text(url.path), error(problem));
                                                             return YES;
                                                           }];
    if (entries == nil) return false;
    for (NSURL* url in entries) {
      @autoreleasepool {
        const auto entry = entryAt(url);
        if (entry && visit(*entry) == Descend::no) [entries skipDescendants];
      }
    }
    return true;
  }

  std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) override {
    @autoreleasepool {
      return sizeValue(fileURL(path), NSURLVolumeAvailableCapacityKey);
    }
  }

  std::optional<std::int64_t> fileSystemFreeSize(const Path& path) override {
    @autoreleasepool {
      id value = [manager() attributesOfFileSystemForPath:nsString(path) error:nil][NSFileSystemFreeSize];
      if (![value isKindOfClass:[NSNumber class]]) return std::nullopt;
      return [value longLongValue];
    }
  }

 private:
  static NSFileManager* manager() { return [NSFileManager defaultManager]; }
};

}  // namespace

std::unique_ptr<FileSystem> makeFileSystem() { return std::make_unique<DarwinFileSystem>(); }

}  // namespace installer::darwin
