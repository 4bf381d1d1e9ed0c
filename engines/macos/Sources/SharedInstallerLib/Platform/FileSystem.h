// Files and volumes. Any thread; every call blocks until it has its answer.
// Failures are `ErrorDomain::cocoa` with the codes of `CocoaError`, or `ErrorDomain::posix` with an errno
// that has no such code. Nothing here asks for more rights than the process has.
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

// Which item a name refers to: it stays with the item through a rename, and no two items that exist at the
// same time share it.
struct FileIdentity {
  std::uint64_t volume = 0;
  std::uint64_t number = 0;  // on the volume
  bool operator==(const FileIdentity&) const = default;
};

// Of the item itself: those of a link aren't its target's.
struct FileAttributes {
  std::int64_t size = 0;  // logical length in bytes
  bool isSymbolicLink = false;
  FileIdentity identity;
};

// An open file being appended to. Used by one thread at a time; closes at destruction.
// The handle follows the file and not its name: it goes on writing to a file that was unlinked or renamed.
class FileAppender {
 public:
  virtual ~FileAppender() = default;
  // Appends all of `bytes` in one piece towards other appenders, or fails.
  [[nodiscard]] virtual Result<> write(std::string_view bytes) = 0;
  // Of the open file, whatever its name stands for by now.
  [[nodiscard]] virtual Result<FileAttributes> attributes() = 0;
};

// An advisory lock of the kernel. Released at destruction, and when the process ends in any way.
class FileLock {
 public:
  virtual ~FileLock() = default;
};

// One entry met by `enumerate`. Links are reported as links, never followed.
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

  // May the current user change the directory or file / run the file or enter the directory?
  virtual bool isWritable(const Path& path) = 0;
  virtual bool isExecutable(const Path& path) = 0;

  // Names without "." and "..", in the order in which the volume gives them.
  [[nodiscard]] virtual Result<std::vector<std::string>> contentsOfDirectory(const Path& path) = 0;

  [[nodiscard]] virtual Result<FileAttributes> attributes(const Path& path) = 0;

  // Both look at the item itself: a name that a dangling link has is taken.
  bool itemExists(const Path& path) { return attributes(path).has_value(); }
  bool isSymbolicLink(const Path& path) {
    const auto item = attributes(path);
    return item && item->isSymbolicLink;
  }

  // A tree with links kept as links, modes kept, extended attributes kept where the volume takes them.
  // All or nothing at `destination`, also through a kill or a loss of power: the tree grows under a hidden
  // sibling and is renamed. Fails with 516 if `destination` exists, 260 if `source` is missing,
  // 513 if the folder may not be written, 640 on a full volume; then nothing is left beside or at
  // `destination`.
  [[nodiscard]] virtual Result<> copyItem(const Path& source, const Path& destination) = 0;

  // A rename; across volumes a copy followed by a removal. Never replaces: 516 if something is there.
  [[nodiscard]] virtual Result<> moveItem(const Path& source, const Path& destination) = 0;

  // A file, a link (not its target), or a tree. Nothing is taken of a tree when permissions, flags or a
  // sticky folder in it would stop the removal. What another failure leaves stays under the name; what
  // someone else removes meanwhile counts as removed. A kill in mid-removal leaves all or nothing under a
  // visible name, and at most a hidden sibling, see `clearLeftovers`; under a hidden name it can leave a
  // part. 4 if nothing is there, 513 if it may not be removed.
  [[nodiscard]] virtual Result<> removeItem(const Path& path) = 0;

  enum class Intermediates { create, require };
  // With `create` an existing directory is a success.
  [[nodiscard]] virtual Result<> createDirectory(const Path& path, Intermediates intermediates) = 0;

  // Whole files. `writeFile` replaces atomically: readers see the old bytes or the new ones.
  [[nodiscard]] virtual Result<std::string> readFile(const Path& path) = 0;
  [[nodiscard]] virtual Result<> writeFile(const Path& path, std::string_view bytes) = 0;

  [[nodiscard]] virtual Result<std::unique_ptr<FileReader>> openForReading(const Path& path) = 0;
  // The file must exist; `writeFile` with no bytes makes an empty one.
  [[nodiscard]] virtual Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) = 0;

  // Walks below `top` (which itself isn't visited), parents before children. False when `top` can't be
  // opened as a directory; nothing has been visited then. A directory that can't be read is reported to
  // `onError` (may be empty) and passed over. An entry whose properties can't be read isn't visited.
  using Visitor = std::function<Descend(const DirectoryEntry&)>;
  using ErrorHandler = std::function<void(const Path&, const Error&)>;
  virtual bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                         const ErrorHandler& onError) = 0;

  // Bytes that the current user may still write on the volume of `path`; absent when the volume doesn't say.
  virtual std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) = 0;
  // Bytes free on the file system of `path`, by the older question; absent when it can't be told.
  virtual std::optional<std::int64_t> fileSystemFreeSize(const Path& path) = 0;

  // Locks the file or folder that `path` leads to, against every other lock of it: of this process, of
  // others and of other users'. Needs the right to read it, changes nothing on the disk and stops no reader
  // or writer that asks for no lock. Null while another holder has it. Children don't inherit the lock.
  [[nodiscard]] virtual Result<std::unique_ptr<FileLock>> tryLock(const Path& path) = 0;

  // Removes the hidden siblings that copies to `path` and removals of it left when they were killed, and no
  // sibling whose process still runs. Best effort; true when something was removed. `copyItem` and
  // `removeItem` do the same for the name they work on.
  virtual bool clearLeftovers(const Path& path) = 0;
};

// A whole file that others wrote, read no further than the limit. Fails as the file system does, and with
// `CocoaError::fileReadCorrupt` for a longer file.
[[nodiscard]] Result<std::string> readBoundedFile(FileSystem& files, const Path& path,
                                                  std::size_t maximumBytes);

}  // namespace installer
