// Files and volumes by the system's own calls. Trees are walked by descriptor, never by a path that somebody
// could swap for a link meanwhile; a path with a NUL inside is refused instead of being cut there.
//
// LinuxFileSystem.cpp answers questions and reads and writes whole files, +Copy copies and moves, +Remove
// removes, +Walk lists and enumerates.
#pragma once

#include "Platform/FileSystem.h"

namespace installer {

// Holds no state: any number may exist, on any thread.
class LinuxFileSystem : public FileSystem {
 public:
  bool fileExists(const Path& path) override;
  bool directoryExists(const Path& path) override;
  bool isWritable(const Path& path) override;
  bool isExecutable(const Path& path) override;

  Result<std::vector<std::string>> contentsOfDirectory(const Path& path) override;
  Result<FileAttributes> attributes(const Path& path) override;

  // The hidden sibling is ".{name}.kelo-copy-{pid}". Permission bits are kept, but never set-id bits: a copy
  // belongs to the user who made it. Sockets, pipes and devices are refused.
  Result<> copyItem(const Path& source, const Path& destination) override;
  Result<> moveItem(const Path& source, const Path& destination) override;
  Result<> removeItem(const Path& path) override;
  bool clearLeftovers(const Path& path) override;
  Result<> createDirectory(const Path& path, Intermediates intermediates) override;

  // A link at `path` is replaced, not followed.
  Result<std::string> readFile(const Path& path) override;
  Result<> writeFile(const Path& path, std::string_view bytes) override;

  Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override;
  Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) override;

  bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                 const ErrorHandler& onError) override;

  std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) override;
  std::optional<std::int64_t> fileSystemFreeSize(const Path& path) override;
};

}  // namespace installer
