// Builds the big-endian structures of a code signature.
#pragma once

#include <map>

#include "Bytes.h"

namespace lab {

class BlobWriter {
 public:
  void byte(std::uint8_t value) { bytes_.push_back(value); }
  void number(std::uint32_t value);
  void number64(std::uint64_t value);
  void append(ByteView bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void alignTo(std::size_t boundary) { bytes_.resize((bytes_.size() + boundary - 1) / boundary * boundary); }
  std::size_t size() const { return bytes_.size(); }
  Bytes take() { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

// Magic number, length, payload.
Bytes blobOf(std::uint32_t magic, ByteView payload);

// A container of blobs, in the order of their types.
Bytes blobIndexOf(std::uint32_t magic, const std::map<std::uint32_t, Bytes>& blobs);

}  // namespace lab
