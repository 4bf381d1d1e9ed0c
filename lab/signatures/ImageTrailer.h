// The trailer of a UDIF disk image, and the signature in front of it.
#pragma once

#include "Bytes.h"
#include "Outcome.h"
#include "support/UDIFTrailer.h"

namespace lab {

struct ImageTrailer : UDIFTrailer {
  Bytes stored;  // the 512 bytes as they stand

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
