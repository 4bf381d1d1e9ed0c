#include "BlobWriter.h"

namespace lab {

void BlobWriter::number(std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    byte(static_cast<std::uint8_t>(value >> static_cast<unsigned>(shift)));
}

void BlobWriter::number64(std::uint64_t value) {
  number(static_cast<std::uint32_t>(value >> 32U));
  number(static_cast<std::uint32_t>(value));
}

Bytes blobOf(std::uint32_t magic, ByteView payload) {
  BlobWriter writer;
  writer.number(magic);
  writer.number(static_cast<std::uint32_t>(payload.size() + 8));
  writer.append(payload);
  return writer.take();
}

Bytes blobIndexOf(std::uint32_t magic, const std::map<std::uint32_t, Bytes>& blobs) {
  BlobWriter payload;
  payload.number(static_cast<std::uint32_t>(blobs.size()));
  auto offset = static_cast<std::uint32_t>(12 + blobs.size() * 8);
  for (const auto& [type, blob] : blobs) {
    payload.number(type);
    payload.number(offset);
    offset += static_cast<std::uint32_t>(blob.size());
  }
  for (const auto& [type, blob] : blobs) payload.append(blob);
  return blobOf(magic, payload.take());
}

}  // namespace lab
