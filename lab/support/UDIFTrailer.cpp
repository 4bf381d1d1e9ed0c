#include "support/UDIFTrailer.h"

#include <algorithm>

namespace lab {
namespace {

constexpr std::uint32_t kCrc32Type = 2;

void storeChecksum(std::uint8_t* to, std::uint32_t crc) {
  storeBig<std::uint32_t>(to, kCrc32Type);
  storeBig<std::uint32_t>(to + 4, 32);
  storeBig<std::uint32_t>(to + 8, crc);
}

bool inside(std::uint64_t offset, std::uint64_t length, std::uint64_t end) {
  return offset <= end && length <= end - offset;
}

}  // namespace

UDIFTrailer::Block UDIFTrailer::bytes() const {
  Block block{};
  std::uint8_t* at = block.data();
  storeBig<std::uint32_t>(at, kMagic);
  storeBig(at + 4, kVersion);
  storeBig<std::uint32_t>(at + 8, kSize);
  storeBig<std::uint32_t>(at + 12, 1);  // flattened: all data is in this file
  storeBig(at + 24, dataForkOffset);
  storeBig(at + 32, dataForkLength);
  storeBig<std::uint32_t>(at + 56, 1);  // segment 1 of 1
  storeBig<std::uint32_t>(at + 60, 1);
  std::ranges::copy(segmentID, at + 64);
  storeChecksum(at + 80, dataChecksum);
  storeBig(at + 216, plistOffset);
  storeBig(at + 224, plistLength);
  storeBig(at + kSignatureOffsetAt, signatureOffset);
  storeBig(at + kSignatureLengthAt, signatureLength);
  storeChecksum(at + 352, masterChecksum);
  storeBig<std::uint32_t>(at + 488, 1);  // a whole device, not one partition
  storeBig(at + 492, sectorCount);
  return block;
}

OrReason<UDIFTrailer> UDIFTrailer::parse(const Block& block, std::uint64_t fileSize) {
  const std::uint8_t* at = block.data();
  if (fileSize < kSize || loadBig<std::uint32_t>(at) != kMagic) return because("it has no UDIF trailer");
  if (loadBig<std::uint32_t>(at + 4) != kVersion || loadBig<std::uint32_t>(at + 8) != kSize) {
    return because("its UDIF trailer is of an unknown version");
  }
  const UDIFTrailer trailer = decode(at);
  const std::uint64_t end = fileSize - kSize;
  if (!inside(trailer.dataForkOffset, trailer.dataForkLength, end) ||
      !inside(trailer.plistOffset, trailer.plistLength, end) ||
      !inside(trailer.signatureOffset, trailer.signatureLength, end)) {
    return because("its UDIF trailer points outside the file");
  }
  if (trailer.plistLength == 0) return because("its UDIF trailer names no property list");
  return trailer;
}

UDIFTrailer UDIFTrailer::decode(const std::uint8_t* at) {
  UDIFTrailer trailer;
  trailer.dataForkOffset = loadBig<std::uint64_t>(at + 24);
  trailer.dataForkLength = loadBig<std::uint64_t>(at + 32);
  std::copy_n(at + 64, 16, trailer.segmentID.begin());
  trailer.dataChecksum = loadBig<std::uint32_t>(at + 88);
  trailer.plistOffset = loadBig<std::uint64_t>(at + 216);
  trailer.plistLength = loadBig<std::uint64_t>(at + 224);
  trailer.signatureOffset = loadBig<std::uint64_t>(at + kSignatureOffsetAt);
  trailer.signatureLength = loadBig<std::uint64_t>(at + kSignatureLengthAt);
  trailer.masterChecksum = loadBig<std::uint32_t>(at + 360);
  trailer.sectorCount = loadBig<std::uint64_t>(at + 492);
  return trailer;
}

}  // namespace lab
