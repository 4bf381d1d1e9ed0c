// `FileSystem` on NSFileManager, NSFileHandle and URL resource values. A path that isn't text is refused, so
// that no conversion gives another path.
//
// DarwinFileSystem.mm has the queries and reads and writes whole files, +Copy copies, +Remove removes, +Walk
// lists and enumerates. Objective-C++ only.
#pragma once

#import <Foundation/Foundation.h>

#include "Base/POSIX/FileErrors.h"
#include "Platform/POSIX/POSIXFileSystem.h"

namespace installer::darwin {

// Holds no state: any number may exist, on any thread.
class DarwinFileSystem final : public POSIXFileSystem {
 public:
  bool fileExists(const Path& path) override;
  bool directoryExists(const Path& path) override;
  bool isWritable(const Path& path) override;
  bool isExecutable(const Path& path) override;

  [[nodiscard]] Result<std::vector<std::string>> contentsOfDirectory(const Path& path) override;
  [[nodiscard]] Result<FileAttributes> attributes(const Path& path) override;

  [[nodiscard]] Result<> copyItem(const Path& source, const Path& destination) override;
  [[nodiscard]] Result<> removeItem(const Path& path) override;
  bool clearLeftovers(const Path& path) override;
  [[nodiscard]] Result<> createDirectory(const Path& path, Intermediates intermediates) override;

  [[nodiscard]] Result<std::string> readFile(const Path& path) override;
  [[nodiscard]] Result<> writeFile(const Path& path, std::string_view bytes) override;

  [[nodiscard]] Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override;

  bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                 const ErrorHandler& onError) override;

  std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) override;
  std::optional<std::int64_t> fileSystemFreeSize(const Path& path) override;
};

NSFileManager* manager();

// A path for Foundation, without trailing slashes, which would follow a link. Nil for an invalid path.
NSString* nameOf(const Path& path);
// The error of a path for which there is no `nameOf`: empty, or no text.
std::unexpected<Error> unusable(FileAccess access, const Path& path, std::string_view deed);
// The folder that holds the item.
Path folderOf(const Path& path);
// An error of an item's hidden sibling, changed to name the item.
Error inTheNameOf(const Path& path, const char* sibling, Error problem);

// A number of the resource values; absent when it can't be read.
std::optional<std::int64_t> sizeValue(NSURL* url, NSURLResourceKey key);

}  // namespace installer::darwin
