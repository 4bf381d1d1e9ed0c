// Writes a UDIF disk image, zlib-compressed, around one HFS+ volume: driver map, partition map, volume.
// Blocks; any thread.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

// Reads the bare volume from `volumeFile` and writes the image to the descriptor `image`, from its current
// place, which must be the start of the file. The same volume gives the same bytes.
OrReason<> writeUDIF(const std::filesystem::path& volumeFile, int image);

// Driver map and partition map of a disk whose one volume has `volumeSectors` sectors and comes right after
// them: 64 sectors.
std::string partitionScheme(std::uint64_t volumeSectors);

}  // namespace lab
