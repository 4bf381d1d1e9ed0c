// The partial file of a download, in the temporary directory. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// Open and locked, so that no two downloads write to one file. The destructor closes the file and keeps it.
class PartialFile {
 public:
  [[nodiscard]] static Result<std::unique_ptr<PartialFile>> create(const Path& folder);
  // Opens a file that `create` made in `folder` and truncates it to `length` bytes. Null for another name,
  // and when the file is shorter, in use, missing or not a plain file of this user.
  static std::unique_ptr<PartialFile> reopen(const Path& folder, const Path& path, std::int64_t length);

  // Removes the files in `folder` of processes that have ended.
  static void removeOrphans(const Path& folder);

  ~PartialFile();
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  const Path& path() const { return path_; }
  // With the bytes that aren't written yet.
  std::int64_t length() const { return length_; }
  // Appends all of `bytes`. They are written when there are enough of them, or by `flush`, which must precede
  // every other use of the file. Both fail with `ErrorDomain::url`.
  [[nodiscard]] Result<> append(std::string_view bytes);
  [[nodiscard]] Result<> flush();
  void remove();

 private:
  PartialFile(int descriptor, Path path, std::int64_t length)
      : descriptor_{descriptor}, path_{std::move(path)}, length_{length} {}

  int descriptor_;
  Path path_;
  std::int64_t length_;
  std::string unwritten_;
};

}  // namespace installer
