// The file of a download, in the temporary directory. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/POSIX/FileDescriptor.h"
#include "Base/Path.h"

namespace installer {

// Open and locked from its creation to the destructor, which keeps the file. An unlocked file was therefore
// left by a killed process.
class PartialFile {
 public:
  [[nodiscard]] static Result<std::unique_ptr<PartialFile>> create(const Path& folder);

  // Removes the files in `folder` that killed processes left.
  static void removeOrphans(const Path& folder);

  ~PartialFile() = default;
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  const Path& path() const { return path_; }
  // With the bytes that aren't written yet.
  std::int64_t length() const { return length_; }
  // Appends all of `bytes`. They are written when there are enough of them, or by `flush`, which must precede
  // every other use of the file. Both fail with `ErrorDomain::url`.
  [[nodiscard]] Result<> append(std::string_view bytes);
  [[nodiscard]] Result<> flush();
  // Truncates the file to `length` bytes, for a download that continues there. False when it is shorter, or
  // deleted.
  bool goBackTo(std::int64_t length);
  void remove();

 private:
  PartialFile(FileDescriptor file, Path path) : file_{std::move(file)}, path_{std::move(path)} {}

  FileDescriptor file_;
  Path path_;
  std::int64_t length_ = 0;
  std::string unwritten_;
};

}  // namespace installer
