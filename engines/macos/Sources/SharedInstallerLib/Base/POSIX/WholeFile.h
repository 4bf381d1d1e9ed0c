// Whole files, read and replaced. Any thread.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/Path.h"

namespace installer {

// The bytes of a regular file. `CocoaError::fileReadCorrupt` for a file of more than `maximumBytes`.
[[nodiscard]] Result<std::string> readWholeFile(
    const Path& path, std::size_t maximumBytes = std::numeric_limits<std::size_t>::max());

// A hidden sibling of `path` that a rename makes the file: `path` holds its old bytes or all of the new ones.
// Clears the leftovers of `path` first. Keeps the permission bits of the file that it replaces. A link at
// `path` is replaced, not followed. The destructor removes an uncommitted sibling.
class FileReplacement {
 public:
  explicit FileReplacement(const Path& path);
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  ~FileReplacement();

  // Open for writing until the commit; absent with errno set after a failed construction.
  const FileDescriptor& file() const { return file_; }
  // False with errno set.
  bool commit();

 private:
  std::string name_;
  FileDescriptor folder_;
  std::optional<HiddenSibling> sibling_;
  FileDescriptor file_;
};

// Writes a `FileReplacement` with these bytes, flushes it to disk and commits it.
[[nodiscard]] Result<> replaceFile(const Path& path, std::string_view bytes);

}  // namespace installer
