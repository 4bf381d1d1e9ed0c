// Writes a UDIF disk image, zlib-compressed, around one HFS+ volume: driver map, partition map, volume.
// Blocks; any thread.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

// Reads the bare volume from `volumeFile` and writes the image to the descriptor `image`, which must be at
// the start of its file. The same volume gives the same bytes.
OrReason<> writeUDIF(const std::filesystem::path& volumeFile, int image);

// The driver map and the partition map, 64 sectors together, of a disk with one volume of `volumeSectors`
// sectors, which follows them.
std::string partitionScheme(std::uint64_t volumeSectors);

}  // namespace lab
