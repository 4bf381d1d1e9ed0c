// The trailer of a UDIF disk image, and the signature before it.
#pragma once

#include "Bytes.h"
#include "Outcome.h"
#include "support/UDIFTrailer.h"

namespace lab {

struct ImageTrailer : UDIFTrailer {
  Bytes stored;  // the unchanged 512 bytes

  bool isSigned() const { return signatureLength != 0; }

  // The bytes of the trailer that a signature seals: all, with zero as the signature's length.
  Bytes sealedBytes() const;
};

// True when the file ends in a UDIF trailer.
bool isUDIF(ByteView file);

// Refuses a signature that isn't exactly between property list and trailer, and a data fork or property list
// that isn't entirely before it.
Outcome<ImageTrailer> readImageTrailer(ByteView file);

}  // namespace lab
