// Files and volumes. Any thread; every call blocks until it is done.
// Failures are `ErrorDomain::cocoa` with the codes of `CocoaError`, or `ErrorDomain::posix` with an errno
// that has no such code. No call requests more rights than the process has.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// An open file being read from its start. Used by one thread at a time; closes at destruction.
class FileReader {
 public:
  virtual ~FileReader() = default;
  // The next bytes, at most `maximum`; empty at the end of the file and only there.
  [[nodiscard]] virtual Result<std::string> read(std::size_t maximum) = 0;
};

// The identity of an item: a rename keeps it, and no two items that exist at the same time share it.
struct FileIdentity {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;  // on the volume
  bool operator==(const FileIdentity&) const = default;
};

// Attributes of the item itself: for a link, those of the link and not of its target.
struct FileAttributes {
  std::int64_t size = 0;  // logical length in bytes
  bool isSymbolicLink = false;
  FileIdentity identity;
};

// An open file being appended to. Used by one thread at a time; closes at destruction.
// The handle belongs to the file and not to its name: it still writes to a file that was unlinked or renamed.
class FileAppender {
 public:
  virtual ~FileAppender() = default;
  // Appends all of `bytes` in one piece, unmixed with those of other appenders, or fails.
  [[nodiscard]] virtual Result<> write(std::string_view bytes) = 0;
  // Of the open file, also when its name now refers to another file.
  [[nodiscard]] virtual Result<FileAttributes> attributes() = 0;
};

// An advisory lock of the kernel. Released at destruction, and when the process ends in any way.
class FileLock {
 public:
  virtual ~FileLock() = default;
};

// One entry of `enumerate`. Links are reported as links, never followed.
struct DirectoryEntry {
  Path path;
  bool isDirectory = false;
  bool isSymbolicLink = false;
  bool isRegularFile = false;
  std::optional<std::int64_t> totalFileAllocatedSize;  // bytes on disk, all forks; absent when unknown
  std::optional<std::int64_t> fileAllocatedSize;       // bytes on disk of the data; absent when unknown
};

enum class Descend { yes, no };            // into the directory just visited
enum class HiddenEntries { visit, skip };  // names with a leading point, and all beneath such a directory

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // Both follow links; a dangling link doesn't exist.
  virtual bool fileExists(const Path& path) = 0;
  virtual bool directoryExists(const Path& path) = 0;

  // Whether the current user may change the directory or file / run the file or enter the directory.
  virtual bool isWritable(const Path& path) = 0;
  virtual bool isExecutable(const Path& path) = 0;

  // Names without "." and "..", in the volume's order.
  [[nodiscard]] virtual Result<std::vector<std::string>> contentsOfDirectory(const Path& path) = 0;

  [[nodiscard]] virtual Result<FileAttributes> attributes(const Path& path) = 0;

  // Both are about the item itself: a dangling link exists.
  bool itemExists(const Path& path) { return attributes(path).has_value(); }
  bool isSymbolicLink(const Path& path) {
    const auto item = attributes(path);
    return item && item->isSymbolicLink;
  }

  // Copies a tree. Links stay links, modes are kept, and extended attributes where the volume supports them.
  // All or nothing at `destination`, also after a kill or a loss of power: the tree is written under the name
  // of a hidden sibling and renamed. Fails with 516 if `destination` exists, 260 if `source` is missing,
  // 513 if the folder may not be written, 640 on a full volume; then nothing is left beside or at
  // `destination`.
  [[nodiscard]] virtual Result<> copyItem(const Path& source, const Path& destination) = 0;

  // Renames; across volumes copies and then removes. Never replaces: 516 if `destination` exists.
  [[nodiscard]] virtual Result<> moveItem(const Path& source, const Path& destination) = 0;

  // Removes a file, a link (not its target), or a tree. Nothing of a tree is removed when permissions, flags
  // or a sticky folder in it would stop the removal. Items that other processes remove meanwhile count as
  // removed. Another failure or a kill during the removal leaves all or nothing under a visible name, and at
  // most a hidden sibling, see `clearLeftovers`; under a hidden name it can leave a part. Fails with 4 if
  // `path` doesn't exist, 513 if it may not be removed.
  [[nodiscard]] virtual Result<> removeItem(const Path& path) = 0;

  enum class Intermediates { create, require };
  // With `create` an existing directory is a success.
  [[nodiscard]] virtual Result<> createDirectory(const Path& path, Intermediates intermediates) = 0;

  // Whole files. `writeFile` replaces atomically: readers see the old bytes or the new ones.
  [[nodiscard]] virtual Result<std::string> readFile(const Path& path) = 0;
  [[nodiscard]] virtual Result<> writeFile(const Path& path, std::string_view bytes) = 0;

  [[nodiscard]] virtual Result<std::unique_ptr<FileReader>> openForReading(const Path& path) = 0;
  // The file must exist; `writeFile` without bytes creates an empty one.
  [[nodiscard]] virtual Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) = 0;

  // Walks below `top` (which itself isn't visited), parents before children. False when `top` can't be
  // opened as a directory; nothing has been visited then. A directory that can't be read is reported to
  // `onError` (may be empty) and skipped. An entry whose properties can't be read isn't visited.
  using Visitor = std::function<Descend(const DirectoryEntry&)>;
  using ErrorHandler = std::function<void(const Path&, const Error&)>;
  virtual bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                         const ErrorHandler& onError) = 0;

  // Bytes that the current user may still write on the volume of `path`; absent when unknown.
  virtual std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) = 0;
  // Bytes free on the file system of `path`, by the older system call; absent when unknown.
  virtual std::optional<std::int64_t> fileSystemFreeSize(const Path& path) = 0;

  // Whether a volume is mounted at `path` and hidden from the user, as those of the engine's images are.
  // Those that the user opens aren't.
  virtual bool isHiddenVolume(const Path& path) = 0;

  // Locks the file or folder at `path` (links are followed) against every other lock of it, by this process,
  // other processes or other users. Requires read permission, changes nothing on disk and stops no reader or
  // writer that takes no lock. Null while another holder has it, or when the process has no descriptor or
  // memory to find out. Child processes don't inherit the lock.
  [[nodiscard]] virtual Result<std::unique_ptr<FileLock>> tryLock(const Path& path) = 0;

  // Removes the hidden siblings that killed copies to `path` and killed removals of it left, but no sibling
  // of a process that still runs. Failures are ignored; true when something was removed. `copyItem` and
  // `removeItem` do the same for their own path.
  virtual bool clearLeftovers(const Path& path) = 0;
};

// The content of an untrusted file, read no further than the limit. Fails with the file system's errors, and
// with `CocoaError::fileReadCorrupt` for a longer file.
[[nodiscard]] Result<std::string> readBoundedFile(FileSystem& files, const Path& path,
                                                  std::size_t maximumBytes);

}  // namespace installer
