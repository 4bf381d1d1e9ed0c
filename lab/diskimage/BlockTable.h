// The table ("blkx") of the places of one partition's sectors in a UDIF file. A value; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/BigEndian.h"

namespace lab {

inline constexpr std::uint64_t kSectorSize = 512;

struct BlockRun {
  std::uint64_t firstSector = 0;  // counted from the table's own first sector
  std::uint64_t sectorCount = 0;
  std::uint64_t offset = 0;  // of the compressed bytes, in the data fork
  std::uint64_t length = 0;
};

struct BlockTable {
  std::string name;               // "disk image (Apple_HFS : 2)"
  std::uint64_t firstSector = 0;  // of the partition, on the disk
  std::uint64_t sectorCount = 0;
  std::uint32_t checksum = 0;  // CRC-32 of the partition's bytes, uncompressed
  std::vector<BlockRun> runs;  // zlib each; in order, without gaps
  std::uint64_t end = 0;       // the end of the last run's bytes in the data fork

  // `number` is the table's index in the image.
  Bytes bytes(std::uint32_t number) const;
};

// The greatest number of sectors in a run.
inline constexpr std::uint64_t kSectorsPerRun = 512;

}  // namespace lab
