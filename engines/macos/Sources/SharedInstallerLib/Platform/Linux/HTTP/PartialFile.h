// A file in the temporary directory that a download grows in. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// Open and locked, so that no two downloads write to one file. Destruction closes the file and leaves it.
class PartialFile {
 public:
  [[nodiscard]] static Result<std::unique_ptr<PartialFile>> create(const Path& folder);
  // Takes up the first `length` bytes of a file that `create` made in `folder`; later bytes are cut off.
  // Absent when that can't be: another name, not a plain file of this user, shorter, in use, gone.
  static std::unique_ptr<PartialFile> reopen(const Path& folder, const Path& path, std::int64_t length);

  // Removes what processes that are gone have left in `folder`.
  static void removeOrphans(const Path& folder);

  ~PartialFile();
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  const Path& path() const { return path_; }
  std::int64_t length() const { return length_; }
  // All of `bytes`, or a failure of `ErrorDomain::url`.
  [[nodiscard]] Result<> append(std::string_view bytes);
  void remove();

 private:
  PartialFile(int descriptor, Path path, std::int64_t length)
      : descriptor_{descriptor}, path_{std::move(path)}, length_{length} {}

  int descriptor_;
  Path path_;
  std::int64_t length_;
};

}  // namespace installer
