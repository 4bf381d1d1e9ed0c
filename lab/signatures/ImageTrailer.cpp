#include "ImageTrailer.h"

#include <algorithm>

namespace lab {

namespace {

constexpr std::uint32_t kMagic = 0x6b6f6c79;
constexpr std::uint32_t kVersion = 4;
constexpr std::ptrdiff_t kSignatureLengthAt = 304;

}  // namespace

Bytes ImageTrailer::sealedBytes() const {
  Bytes sealed = bytes;
  std::fill_n(sealed.begin() + kSignatureLengthAt, 8, std::uint8_t{0});
  return sealed;
}

bool isUDIF(ByteView file) {
  return file.size() >= kImageTrailerSize && be32(file, file.size() - kImageTrailerSize) == kMagic;
}

Outcome<ImageTrailer> readImageTrailer(ByteView file) {
  if (!isUDIF(file)) return refuse("file has no disk image trailer");
  const std::uint64_t trailerAt = file.size() - kImageTrailerSize;
  const ByteView bytes = *slice(file, trailerAt, kImageTrailerSize);
  if (be32(bytes, 4) != kVersion || be32(bytes, 8) != kImageTrailerSize)
    return refuse("disk image trailer is of an unknown version");
  ImageTrailer trailer{copyOf(bytes),     *be64(bytes, 24),  *be64(bytes, 32), *be64(bytes, 216),
                       *be64(bytes, 224), *be64(bytes, 296), *be64(bytes, 304)};
  const ByteView front = file.first(static_cast<std::size_t>(trailerAt));
  if (!slice(front, trailer.dataForkOffset, trailer.dataForkLength) ||
      !slice(front, trailer.propertyListOffset, trailer.propertyListLength)) {
    return refuse("disk image trailer points outside the image");
  }
  if (!trailer.isSigned()) return trailer;
  if (!slice(front, trailer.signatureOffset, trailer.signatureLength) ||
      trailer.signatureOffset + trailer.signatureLength != trailerAt ||
      trailer.propertyListOffset + trailer.propertyListLength != trailer.signatureOffset) {
    return refuse("disk image signature doesn't stand between property list and trailer");
  }
  if (!slice(front.first(static_cast<std::size_t>(trailer.signatureOffset)), trailer.dataForkOffset,
             trailer.dataForkLength)) {
    return refuse("disk image data overlaps its signature");
  }
  return trailer;
}

}  // namespace lab
