// Makes small Mach-O files for fixtures, and makes room for signatures in existing ones.
#pragma once

#include <string>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

struct MachOPlan {
  std::uint32_t cpuType = 0x0100000c;
  std::uint32_t cpuSubtype = 0;
  std::uint32_t fileType = 2;  // executable
  Bytes text;                  // the section __TEXT,__text
  Bytes infoPlist;             // the section __TEXT,__info_plist; none when empty
};

// A well-formed, unsigned thin file. It isn't meant to run.
Bytes makeMachO(const MachOPlan& plan);

// Thin files joined into a universal one.
Bytes makeUniversal(const std::vector<Bytes>& slices);

// The slice without its signature, with a load command for one of `room` bytes, which aren't there yet: the
// signature is to be appended and padded to that size.
Outcome<Bytes> prepareForSignature(ByteView slice, std::uint64_t room);

// Where prepareForSignature() would put the signature.
Outcome<std::uint64_t> signatureOffsetFor(ByteView slice);

// Size of the segment __TEXT; 0 when there is none.
std::uint64_t textSegmentSize(ByteView slice);

}  // namespace lab
