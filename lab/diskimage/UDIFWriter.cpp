#include "diskimage/UDIFWriter.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <span>
#include <zlib.h>

#include "Base/POSIX/FileDescriptor.h"
#include "diskimage/BlockTable.h"
#include "diskimage/ResourceList.h"
#include "support/Files.h"
#include "support/Interruption.h"
#include "support/UDIFTrailer.h"

namespace lab {
namespace {

constexpr std::uint64_t kSchemeSectors = 64;
constexpr std::size_t kRunBytes = kSectorsPerRun * kSectorSize;

const Bytef* units(std::string_view bytes) {
  return reinterpret_cast<const Bytef*>(bytes.data());
}

std::uint32_t crcOf(std::uint32_t before, std::string_view bytes) {
  return static_cast<std::uint32_t>(crc32_z(before, units(bytes), bytes.size()));
}

// The data fork while it is written.
class DataFork {
 public:
  explicit DataFork(int image) : image_(image) {}

  // Compresses `bytes`, whole sectors, and adds them to the table's runs and checksum.
  OrReason<> add(BlockTable& table, std::string_view bytes) {
    uLongf size = compressBound(bytes.size());
    packed_.resize(size);
    compress2(reinterpret_cast<Bytef*>(packed_.data()), &size, units(bytes), bytes.size(),
              Z_DEFAULT_COMPRESSION);
    packed_.resize(size);
    table.runs.push_back({table.sectorCount, bytes.size() / kSectorSize, length, size});
    table.sectorCount += bytes.size() / kSectorSize;
    table.checksum = crcOf(table.checksum, bytes);
    checksum = crcOf(checksum, packed_);
    length += size;
    table.end = length;
    return writeAll(image_, packed_);
  }

  std::uint64_t length = 0;
  std::uint32_t checksum = 0;

 private:
  int image_;
  std::string packed_;
};

// Fills `buffer` from the file; gives fewer bytes only at the end of the file.
OrReason<std::size_t> readFull(int file, std::span<char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = read(file, buffer.data() + filled, buffer.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return becauseOfErrno("read");
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

OrReason<> addVolume(DataFork& fork, BlockTable& table, int volume) {
  std::string buffer(kRunBytes, '\0');
  while (true) {
    const auto count = readFull(volume, buffer);
    if (!count) return handOn(count);
    if (*count == 0) return {};
    if (*count % kSectorSize != 0) return because("the volume's size isn't a multiple of the sector size");
    if (interruption() != 0) return because("interrupted");
    const auto added = fork.add(table, std::string_view{buffer.data(), *count});
    if (!added) return added;
  }
}

std::uint32_t masterChecksum(std::span<const BlockTable> tables) {
  std::uint32_t crc = 0;
  for (const BlockTable& table : tables) {
    std::string checksum(4, '\0');
    storeBig(reinterpret_cast<std::uint8_t*>(checksum.data()), table.checksum);
    crc = crcOf(crc, checksum);
  }
  return crc;
}

// Writes property list and trailer after the data fork.
OrReason<> finishImage(int image, const DataFork& fork, std::span<const BlockTable> tables) {
  const std::string list = resourceList(tables);
  UDIFTrailer trailer;
  trailer.dataForkLength = fork.length;
  trailer.dataChecksum = fork.checksum;
  trailer.plistOffset = fork.length;
  trailer.plistLength = list.size();
  trailer.masterChecksum = masterChecksum(tables);
  trailer.sectorCount = tables.back().firstSector + tables.back().sectorCount;
  std::ranges::copy_n(sha256(list).begin(), 16, trailer.segmentID.begin());
  const auto block = trailer.bytes();
  const auto written = writeAll(image, list);
  if (!written) return written;
  return writeAll(image, {reinterpret_cast<const char*>(block.data()), block.size()});
}

// Stores one 512-byte entry of the partition map.
void storePartition(std::string& scheme, std::size_t index, std::string_view name, std::string_view type,
                    std::uint64_t first, std::uint64_t count) {
  auto* at = reinterpret_cast<std::uint8_t*>(scheme.data()) + index * kSectorSize;
  storeBig<std::uint16_t>(at, 0x504d);  // "PM"
  storeBig<std::uint32_t>(at + 4, 2);   // entries in the map
  storeBig(at + 8, static_cast<std::uint32_t>(first));
  storeBig(at + 12, static_cast<std::uint32_t>(count));
  std::ranges::copy(name, at + 16);
  std::ranges::copy(type, at + 48);
  storeBig(at + 84, static_cast<std::uint32_t>(count));
  storeBig<std::uint32_t>(at + 88, 3);  // valid and allocated
}

}  // namespace

std::string partitionScheme(std::uint64_t volumeSectors) {
  std::string scheme(kSchemeSectors * kSectorSize, '\0');
  auto* at = reinterpret_cast<std::uint8_t*>(scheme.data());
  storeBig<std::uint16_t>(at, 0x4552);  // "ER"
  storeBig<std::uint16_t>(at + 2, kSectorSize);
  storeBig(at + 4, static_cast<std::uint32_t>(kSchemeSectors + volumeSectors));
  storePartition(scheme, 1, "Apple", "Apple_partition_map", 1, kSchemeSectors - 1);
  storePartition(scheme, 2, "disk image", "Apple_HFS", kSchemeSectors, volumeSectors);
  return scheme;
}

OrReason<> writeUDIF(const fs::path& volumeFile, int image) {
  const installer::FileDescriptor volume{open(volumeFile.c_str(), O_RDONLY | O_CLOEXEC)};
  if (!volume) return becauseOfErrno(volumeFile.string());
  std::error_code error;
  const std::uint64_t sectors = fs::file_size(volumeFile, error) / kSectorSize;
  if (error || sectors == 0 || sectors > UINT32_MAX - kSchemeSectors)
    return because("the volume has no usable size");
  const std::string scheme = partitionScheme(sectors);
  std::vector<BlockTable> tables{{"Driver Descriptor Map (DDM : 0)", 0, 0, 0, {}, 0},
                                 {"Apple (Apple_partition_map : 1)", 1, 0, 0, {}, 0},
                                 {"disk image (Apple_HFS : 2)", kSchemeSectors, 0, 0, {}, 0}};
  DataFork fork{image};
  auto added = fork.add(tables[0], std::string_view{scheme}.substr(0, kSectorSize));
  if (added) added = fork.add(tables[1], std::string_view{scheme}.substr(kSectorSize));
  if (added) added = addVolume(fork, tables[2], volume.get());
  if (!added) return added;
  return finishImage(image, fork, tables);
}

}  // namespace lab
