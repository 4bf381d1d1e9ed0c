// A regular file's bytes, mapped for reading as long as the object exists.
// Movable, not copyable. A symbolic link as the last component isn't followed by default.
#pragma once

#include <filesystem>
#include <sys/types.h>

#include "Bytes.h"
#include "Digest.h"
#include "Outcome.h"

namespace lab {

enum class Links { refuse, follow };

class MappedFile {
 public:
  // Fails unless `path` is a regular file. Doesn't block on a pipe or a device.
  static Outcome<MappedFile> open(const std::filesystem::path& path, Links links = Links::refuse);

  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();

  ByteView bytes() const { return {data_, size_}; }

 private:
  MappedFile(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

// The digest of a regular file's bytes; fails like `MappedFile::open`. `piece` is the read buffer; it isn't
// empty. For files that are read once, this is faster than a mapping per file.
Outcome<Digest> digestOfFile(const std::filesystem::path& path, HashType type, Bytes& piece);

}  // namespace lab
