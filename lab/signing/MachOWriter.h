// Makes small Mach-O files for fixtures, and makes space for signatures in existing ones.
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

// A well-formed, unsigned thin file. It can't run.
Bytes makeMachO(const MachOPlan& plan);

// A universal file of the thin files.
Bytes makeUniversal(const std::vector<Bytes>& slices);

// The slice without its signature, with a load command for a signature of `room` bytes. The caller appends
// the signature and pads it to that size.
Outcome<Bytes> prepareForSignature(ByteView slice, std::uint64_t room);

// The offset of the signature after prepareForSignature().
Outcome<std::uint64_t> signatureOffsetFor(ByteView slice);

// Size of the segment __TEXT; 0 when there is none.
std::uint64_t textSegmentSize(ByteView slice);

}  // namespace lab
