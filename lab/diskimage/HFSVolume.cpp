#include "diskimage/HFSVolume.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/Text.h"
#include "diskimage/BlockTable.h"
#include "support/ChildProcess.h"
#include "support/Files.h"

namespace lab {
namespace {

struct Extent {
  std::uint64_t offset = 0;  // in bytes
  std::uint64_t length = 0;
};

// Sixteen hexadecimal digits that identify the volume.
std::string serialNumber(const std::string& volumeName, const char* epoch) {
  const std::string moment =
      epoch != nullptr ? epoch : std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
  return installer::hexadecimal(sha256(volumeName + "\n" + moment)).substr(0, 16);
}

// Makes an image that is ISO 9660 and HFS+ at once; the HFS+ volume is in a partition.
OrReason<> makeHybrid(const fs::path& folder, const std::string& volumeName, const fs::path& hybrid) {
  const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
  std::vector<std::string> command{"xorriso",
                                   "-as",
                                   "mkisofs",
                                   "-quiet",
                                   "-hfsplus",
                                   "-hfsplus-serial-no",
                                   serialNumber(volumeName, epoch),
                                   "-uid",
                                   "0",
                                   "-gid",
                                   "0",
                                   "-V",
                                   volumeName};
  if (epoch != nullptr) {
    command.insert(command.end(), {"--set_all_file_dates", std::string{"="} + epoch});
  }
  command.insert(command.end(), {"-o", hybrid.string(), folder.string()});
  const auto finished = runToEnd(command);
  if (!finished) return handOn(finished);
  if (finished->status != 0) return because("xorriso: {}", lastLine(finished->diagnostics));
  return {};
}

OrReason<Extent> findHFS(int hybrid) {
  std::array<std::uint8_t, kSectorSize> entry{};
  for (std::uint64_t index = 1, count = 1; index <= count && index < 64; ++index) {
    const auto at = static_cast<off_t>(index * kSectorSize);
    if (pread(hybrid, entry.data(), entry.size(), at) != static_cast<ssize_t>(entry.size())) break;
    if (loadBig<std::uint16_t>(entry.data()) != 0x504d) break;
    count = loadBig<std::uint32_t>(entry.data() + 4);
    const std::string type{reinterpret_cast<const char*>(entry.data()) + 48, 9};
    if (type != "Apple_HFS") continue;
    return Extent{loadBig<std::uint32_t>(entry.data() + 8) * kSectorSize,
                  loadBig<std::uint32_t>(entry.data() + 12) * kSectorSize};
  }
  return because("xorriso made no HFS+ partition");
}

OrReason<> copyExtent(int from, Extent extent, int to) {
  std::string buffer(std::size_t{1} << 20U, '\0');
  while (extent.length > 0) {
    const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), extent.length);
    const ssize_t count = pread(from, buffer.data(), wanted, static_cast<off_t>(extent.offset));
    if (count <= 0) return because("xorriso's partition is longer than its image");
    const auto written = writeAll(to, {buffer.data(), static_cast<std::size_t>(count)});
    if (!written) return written;
    extent.offset += static_cast<std::uint64_t>(count);
    extent.length -= static_cast<std::uint64_t>(count);
  }
  return {};
}

}  // namespace

OrReason<> makeHFSVolume(const fs::path& folder, const std::string& volumeName, const fs::path& scratch,
                         const fs::path& volumeFile) {
  const fs::path hybridFile = scratch / "hybrid.iso";
  const auto made = makeHybrid(folder, volumeName, hybridFile);
  if (!made) return made;
  const installer::FileDescriptor hybrid{open(hybridFile.c_str(), O_RDONLY | O_CLOEXEC)};
  const installer::FileDescriptor volume{
      open(volumeFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)};
  if (!hybrid || !volume) return becauseOfErrno(scratch.string());
  const auto extent = findHFS(hybrid.get());
  if (!extent) return handOn(extent);
  return copyExtent(hybrid.get(), *extent, volume.get());
}

}  // namespace lab
