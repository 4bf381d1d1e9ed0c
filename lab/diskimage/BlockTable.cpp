#include "diskimage/BlockTable.h"

namespace lab {
namespace {

constexpr std::uint32_t kMish = 0x6d697368;  // "mish"
constexpr std::size_t kHeaderSize = 204;
constexpr std::size_t kRunSize = 40;
constexpr std::uint32_t kZlibRun = 0x80000005;
constexpr std::uint32_t kTerminator = 0xffffffff;

void storeRun(std::uint8_t* to, std::uint32_t type, const BlockRun& run) {
  storeBig<std::uint32_t>(to, type);
  storeBig(to + 8, run.firstSector);
  storeBig(to + 16, run.sectorCount);
  storeBig(to + 24, run.offset);
  storeBig(to + 32, run.length);
}

}  // namespace

Bytes BlockTable::bytes(std::uint32_t number) const {
  Bytes table(kHeaderSize + (runs.size() + 1) * kRunSize);
  std::uint8_t* at = table.data();
  storeBig<std::uint32_t>(at, kMish);
  storeBig<std::uint32_t>(at + 4, 1);
  storeBig(at + 8, firstSector);
  storeBig(at + 16, sectorCount);
  storeBig<std::uint32_t>(at + 32, kSectorsPerRun + 8);  // the buffer for one run, in sectors
  storeBig<std::uint32_t>(at + 36, number);
  storeBig<std::uint32_t>(at + 64, 2);  // CRC-32, of 32 bits
  storeBig<std::uint32_t>(at + 68, 32);
  storeBig<std::uint32_t>(at + 72, checksum);
  storeBig(at + 200, static_cast<std::uint32_t>(runs.size() + 1));
  at += kHeaderSize;
  for (const BlockRun& run : runs) {
    storeRun(at, kZlibRun, run);
    at += kRunSize;
  }
  storeRun(at, kTerminator, {sectorCount, 0, end, 0});
  return table;
}

}  // namespace lab
