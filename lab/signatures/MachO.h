// Mach-O files, thin and universal, as far as a code signature needs them.
// The views point into the bytes that were given; the caller keeps those alive.
#pragma once

#include <string>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

struct MachOSlice {
  ByteView bytes;  // the whole slice
  std::uint32_t cpuType = 0;
  std::uint32_t cpuSubtype = 0;
  std::uint32_t fileType = 0;
  std::uint64_t signatureOffset = 0;  // from the start of the slice; its size when there is no signature
  std::optional<ByteView> signature;  // what the load command spans, slack behind the SuperBlob included
  std::optional<ByteView> infoPlist;  // the section __TEXT,__info_plist
};

// True for a thin Mach-O file that holds code and for a universal file whose first slice does.
// Object files and archives, even universal ones, are plain files.
bool isMachO(ByteView file);

// All slices, in file order. Refuses a universal file with anything but zeros between its header and
// slices, with bytes behind the last slice, with overlapping slices, or whose table and slices disagree;
// and a slice whose signature isn't the end of its __LINKEDIT.
Outcome<std::vector<MachOSlice>> readMachO(ByteView file);

// "arm64", "x86_64", ... or "cpu 0x..." for a processor without a name here.
std::string architectureName(const MachOSlice& slice);

}  // namespace lab
