// The last 512 bytes of a UDIF disk image: the places and checksums of its parts. All numbers in the file are
// big-endian. Pure functions; any thread.
#pragma once

#include <array>
#include <cstdint>

#include "support/BigEndian.h"
#include "support/OrReason.h"

namespace lab {

struct UDIFTrailer {
  static constexpr std::size_t kSize = 512;
  static constexpr std::uint32_t kMagic = 0x6b6f6c79;  // "koly"
  static constexpr std::uint32_t kVersion = 4;
  static constexpr std::ptrdiff_t kSignatureOffsetAt = 296;
  static constexpr std::ptrdiff_t kSignatureLengthAt = 304;
  using Block = std::array<std::uint8_t, kSize>;

  std::uint64_t dataForkOffset = 0;
  std::uint64_t dataForkLength = 0;
  std::uint32_t dataChecksum = 0;  // CRC-32 of the data fork's bytes in the file
  std::uint64_t plistOffset = 0;   // the property list with the block tables
  std::uint64_t plistLength = 0;
  std::uint64_t signatureOffset = 0;  // 0 and 0 in an unsigned image
  std::uint64_t signatureLength = 0;
  std::uint32_t masterChecksum = 0;  // CRC-32 of the block tables' checksums, one after the other
  std::uint64_t sectorCount = 0;     // of 512 bytes, on the attached disk
  std::array<std::uint8_t, 16> segmentID{};

  Block bytes() const;

  // The trailer of a file of `fileSize` bytes. Fails when `block` isn't a trailer, or when it refers to bytes
  // that aren't in the file before it.
  static OrReason<UDIFTrailer> parse(const Block& block, std::uint64_t fileSize);

  // The fields of the `kSize` bytes at `block`, unchecked.
  static UDIFTrailer decode(const std::uint8_t* block);
};

}  // namespace lab
