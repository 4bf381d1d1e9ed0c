// The index of a code signature's parts, and the parts. Views point into the given bytes; the caller keeps
// those alive.
#pragma once

#include <map>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

// Magic numbers, big-endian at the start of each blob, before its length.
inline constexpr std::uint32_t kSuperBlobMagic = 0xfade0cc0;
inline constexpr std::uint32_t kCodeDirectoryMagic = 0xfade0c02;
inline constexpr std::uint32_t kRequirementMagic = 0xfade0c00;
inline constexpr std::uint32_t kRequirementsMagic = 0xfade0c01;
inline constexpr std::uint32_t kEntitlementsMagic = 0xfade7171;
inline constexpr std::uint32_t kEntitlementsDERMagic = 0xfade7172;
inline constexpr std::uint32_t kBlobWrapperMagic = 0xfade0b01;

// Slots of a signature.
inline constexpr std::uint32_t kCodeDirectorySlot = 0;
inline constexpr std::uint32_t kInfoPlistSlot = 1;
inline constexpr std::uint32_t kRequirementsSlot = 2;
inline constexpr std::uint32_t kResourcesSlot = 3;
inline constexpr std::uint32_t kTopDirectorySlot = 4;
inline constexpr std::uint32_t kEntitlementsSlot = 5;
inline constexpr std::uint32_t kRepresentationSlot = 6;
inline constexpr std::uint32_t kEntitlementsDERSlot = 7;
inline constexpr std::uint32_t kLastHashedSlot = 11;
inline constexpr std::uint32_t kFirstAlternateSlot = 0x1000;
inline constexpr std::uint32_t kLastAlternateSlot = 0x1004;
inline constexpr std::uint32_t kSignatureSlot = 0x10000;

// A blob's bytes (header and payload); fails unless it has the magic and its length is exactly that of
// `bytes`.
Outcome<ByteView> wholeBlob(ByteView bytes, std::uint32_t magic, std::string_view what);

// Every blob of a container (a SuperBlob or a requirement set) by its type, with its header. Refuses a
// greater count than in real signatures, a repeated type, overlapping blobs, and an offset or length beyond
// the container. Bytes after the container's length are slack.
Outcome<std::map<std::uint32_t, ByteView>> readBlobIndex(ByteView bytes, std::uint32_t magic);

}  // namespace lab
