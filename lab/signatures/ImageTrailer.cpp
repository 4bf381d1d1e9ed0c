#include "ImageTrailer.h"

#include <algorithm>

namespace lab {

Bytes ImageTrailer::sealedBytes() const {
  Bytes sealed = stored;
  std::fill_n(sealed.begin() + kSignatureLengthAt, 8, std::uint8_t{0});
  return sealed;
}

bool isUDIF(ByteView file) {
  return file.size() >= UDIFTrailer::kSize &&
         be32(file, file.size() - UDIFTrailer::kSize) == UDIFTrailer::kMagic;
}

Outcome<ImageTrailer> readImageTrailer(ByteView file) {
  if (!isUDIF(file)) return refuse("file has no disk image trailer");
  const std::uint64_t trailerAt = file.size() - UDIFTrailer::kSize;
  const ByteView bytes = *slice(file, trailerAt, UDIFTrailer::kSize);
  if (be32(bytes, 4) != UDIFTrailer::kVersion || be32(bytes, 8) != UDIFTrailer::kSize)
    return refuse("disk image trailer is of an unknown version");
  const ImageTrailer trailer{UDIFTrailer::decode(bytes.data()), copyOf(bytes)};
  const ByteView front = file.first(static_cast<std::size_t>(trailerAt));
  if (!slice(front, trailer.dataForkOffset, trailer.dataForkLength) ||
      !slice(front, trailer.plistOffset, trailer.plistLength)) {
    return refuse("disk image trailer points outside the image");
  }
  if (!trailer.isSigned()) return trailer;
  if (!slice(front, trailer.signatureOffset, trailer.signatureLength) ||
      trailer.signatureOffset + trailer.signatureLength != trailerAt ||
      trailer.plistOffset + trailer.plistLength != trailer.signatureOffset) {
    return refuse("disk image signature isn't between property list and trailer");
  }
  if (!slice(front.first(static_cast<std::size_t>(trailer.signatureOffset)), trailer.dataForkOffset,
             trailer.dataForkLength)) {
    return refuse("disk image data overlaps its signature");
  }
  return trailer;
}

}  // namespace lab
