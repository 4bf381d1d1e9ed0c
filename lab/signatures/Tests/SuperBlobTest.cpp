#include <gtest/gtest.h>

#include "BlobWriter.h"
#include "SuperBlob.h"

namespace lab {
namespace {

Bytes container() {
  return blobIndexOf(kSuperBlobMagic, {{0, blobOf(kCodeDirectoryMagic, viewOf("directory"))},
                                       {2, blobOf(kRequirementsMagic, viewOf("set"))}});
}

TEST(SuperBlob, FindsItsBlobs) {
  const Bytes bytes = container();
  const auto blobs = readBlobIndex(bytes, kSuperBlobMagic);
  ASSERT_TRUE(blobs) << blobs.error().reason;
  EXPECT_EQ(textOf(blobs->at(2).subspan(8)), "set");
}

TEST(SuperBlob, ToleratesSlackBehindItsLength) {
  Bytes bytes = container();
  bytes.resize(bytes.size() + 9000, 0xAA);
  EXPECT_TRUE(readBlobIndex(bytes, kSuperBlobMagic));
}

TEST(SuperBlob, ToleratesAGapBehindTheIndex) {
  BlobWriter payload;
  payload.number(1);
  payload.number(0);
  payload.number(40);
  payload.append(Bytes(20));
  payload.append(blobOf(kCodeDirectoryMagic, {}));
  EXPECT_TRUE(readBlobIndex(blobOf(kSuperBlobMagic, payload.take()), kSuperBlobMagic));
}

TEST(SuperBlob, ToleratesAnEmptyWrapper) {
  const Bytes bytes = blobIndexOf(kSuperBlobMagic, {{kSignatureSlot, blobOf(kBlobWrapperMagic, {})}});
  const auto blobs = readBlobIndex(bytes, kSuperBlobMagic);
  ASSERT_TRUE(blobs);
  EXPECT_EQ(blobs->at(kSignatureSlot).size(), 8U);
}

// The container with one 32-bit field replaced.
Bytes with(std::size_t offset, std::uint32_t value) {
  Bytes bytes = container();
  BlobWriter field;
  field.number(value);
  const Bytes replacement = field.take();
  std::copy(replacement.begin(), replacement.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  return bytes;
}

TEST(SuperBlob, RefusesWhatLeavesIt) {
  const struct {
    const char* what;
    std::size_t offset;
    std::uint32_t value;
  } rows[] = {{"magic", 0, 0xfade0cc1},           {"length beyond the room", 4, 0x7fffffff},
              {"count beyond the length", 8, 60}, {"huge count", 8, 0xffffffff},
              {"two blobs for one slot", 20, 0},  {"offset into the index", 16, 4},
              {"offset outside", 16, 10000},      {"offset that overflows", 16, 0xffffffff},
              {"overlapping blobs", 24, 29},      {"length of a blob", 32, 100000},
              {"length of zero", 32, 0}};
  for (const auto& row : rows)
    EXPECT_FALSE(readBlobIndex(with(row.offset, row.value), kSuperBlobMagic)) << row.what;
}

TEST(SuperBlob, RefusesEveryTruncation) {
  const Bytes bytes = container();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(readBlobIndex(ByteView(bytes).first(length), kSuperBlobMagic)) << length;
  }
}

}  // namespace
}  // namespace lab
