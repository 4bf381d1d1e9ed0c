// The parts of thin and universal Mach-O files that a code signature needs. The views point into the given
// bytes; the caller keeps those alive.
#pragma once

#include <string>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

// Magic numbers and load commands.
inline constexpr std::uint32_t kUniversalMagic = 0xcafebabe;
inline constexpr std::uint32_t kMachOMagic64 = 0xfeedfacf;
inline constexpr std::uint32_t kSegmentCommand64 = 0x19;
inline constexpr std::uint32_t kCodeSignatureCommand = 0x1d;

struct MachOSlice {
  ByteView bytes;  // the whole slice
  std::uint32_t cpuType = 0;
  std::uint32_t cpuSubtype = 0;
  std::uint32_t fileType = 0;
  std::uint64_t signatureOffset = 0;  // from the start of the slice; the slice's size without a signature
  std::optional<ByteView> signature;  // the bytes of the load command, with the slack after the SuperBlob
  std::optional<ByteView> infoPlist;  // the section __TEXT,__info_plist
};

// True for a thin Mach-O file with code and for a universal file whose first slice has code. Object files and
// archives, even universal ones, are plain files.
bool isMachO(ByteView file);

// All slices, in file order. Refuses a universal file with other bytes than zeros between its header and
// slices, with bytes after the last slice, with overlapping slices, or whose table doesn't match the slices;
// and a slice whose signature isn't the end of its __LINKEDIT.
Outcome<std::vector<MachOSlice>> readMachO(ByteView file);

// "arm64", "x86_64", ... or "cpu 0x..." for a processor without a name here.
std::string architectureName(const MachOSlice& slice);

}  // namespace lab
