// The trailer of a UDIF disk image, and the signature in front of it.
#pragma once

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

inline constexpr std::uint64_t kImageTrailerSize = 512;

struct ImageTrailer {
  Bytes bytes;  // the 512 bytes as they stand
  std::uint64_t dataForkOffset = 0;
  std::uint64_t dataForkLength = 0;
  std::uint64_t propertyListOffset = 0;
  std::uint64_t propertyListLength = 0;
  std::uint64_t signatureOffset = 0;  // 0 together with the length when the image isn't signed
  std::uint64_t signatureLength = 0;

  bool isSigned() const { return signatureLength != 0; }

  // What a signature seals of the trailer: all of it, with the signature's length still zero.
  Bytes sealedBytes() const;
};

// True when the file ends in a UDIF trailer.
bool isUDIF(ByteView file);

// Refuses a signature that doesn't stand exactly between property list and trailer, and a data fork or
// property list that leaves the part in front of it.
Outcome<ImageTrailer> readImageTrailer(ByteView file);

}  // namespace lab
