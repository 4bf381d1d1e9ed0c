#include "SuperBlob.h"

#include <algorithm>
#include <vector>

namespace lab {

namespace {

// A complete signature has about a dozen.
constexpr std::uint32_t kMostBlobs = 64;

Outcome<ByteView> blobAt(ByteView container, std::uint64_t offset, std::uint64_t indexEnd) {
  const auto length = be32(container, offset + 4);
  if (offset < indexEnd || !length || *length < 8) return refuse("a signature blob is malformed");
  const auto blob = slice(container, offset, *length);
  if (!blob) return refuse("a signature blob exceeds its container");
  return *blob;
}

Outcome<void> refuseOverlaps(const std::map<std::uint32_t, ByteView>& blobs) {
  std::vector<ByteView> inOrder;
  for (const auto& [type, blob] : blobs) inOrder.push_back(blob);
  std::ranges::sort(inOrder, {}, &ByteView::data);
  for (std::size_t i = 1; i < inOrder.size(); ++i) {
    const ByteView& before = inOrder[i - 1];
    if (before.data() + before.size() > inOrder[i].data()) return refuse("signature blobs overlap");
  }
  return {};
}

}  // namespace

Outcome<ByteView> wholeBlob(ByteView bytes, std::uint32_t magic, std::string_view what) {
  if (be32(bytes, 0) != magic) return refuse("{} has the wrong magic number", what);
  if (be32(bytes, 4) != bytes.size()) return refuse("{} has the wrong length", what);
  return bytes;
}

Outcome<std::map<std::uint32_t, ByteView>> readBlobIndex(ByteView bytes, std::uint32_t magic) {
  const auto length = be32(bytes, 4);
  const auto count = be32(bytes, 8);
  if (be32(bytes, 0) != magic || !length || !count)
    return refuse("signature container has the wrong magic number or is truncated");
  const auto container = slice(bytes, 0, *length);
  if (!container) return refuse("signature container is longer than the space for it");
  if (*count > kMostBlobs) return refuse("signature container counts {} blobs", *count);
  const std::uint64_t indexEnd = 12 + std::uint64_t{*count} * 8;
  std::map<std::uint32_t, ByteView> blobs;
  for (std::uint64_t at = 12; at < indexEnd; at += 8) {
    const auto type = be32(*container, at);
    const auto offset = be32(*container, at + 4);
    if (!type || !offset) return refuse("signature container's index is truncated");
    auto blob = blobAt(*container, *offset, indexEnd);
    if (!blob) return handOn(blob);
    if (!blobs.emplace(*type, *blob).second)
      return refuse("signature container holds two blobs for slot {:#x}", *type);
  }
  if (auto apart = refuseOverlaps(blobs); !apart) return handOn(apart);
  return blobs;
}

}  // namespace lab
