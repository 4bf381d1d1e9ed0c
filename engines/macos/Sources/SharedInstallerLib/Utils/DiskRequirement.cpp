#include "Utils/DiskRequirement.h"

#include <algorithm>
#include <limits>

#include "Platform/Machine.h"

namespace installer {

namespace {

constexpr auto kGreatest = std::numeric_limits<std::int64_t>::max();

std::int64_t expandedBytes(double ratio, std::int64_t downloadBytes) {
  const double product = ratio * static_cast<double>(downloadBytes);
  return product < static_cast<double>(kGreatest) ? static_cast<std::int64_t>(product) : kGreatest;
}

// Neither figure is negative.
std::int64_t saturatedSum(std::int64_t a, std::int64_t b) {
  return a > kGreatest - b ? kGreatest : a + b;
}

}  // namespace

std::int64_t DiskRequirement::peakBytes(const AppInfo& app, std::int64_t downloadBytes,
                                        const std::optional<Path>& existingInstallPath) {
  const auto bothOnDisk = saturatedSum(downloadBytes, expandedBytes(app.expansionRatio, downloadBytes));
  const auto reclaimable = existingInstallPath ? directorySize(*existingInstallPath).value_or(0) : 0;
  return std::max(bothOnDisk - reclaimable, downloadBytes);
}

std::optional<std::int64_t> DiskRequirement::directorySize(const Path& path) {
  auto& files = machine().files;
  if (!files.fileExists(path)) return std::nullopt;

  std::int64_t total = 0;
  const bool opened = files.enumerate(
      path, HiddenEntries::skip,
      [&total](const DirectoryEntry& entry) {
        if (!entry.isRegularFile) return Descend::yes;
        total =
            saturatedSum(total, entry.totalFileAllocatedSize.value_or(entry.fileAllocatedSize.value_or(0)));
        return Descend::yes;
      },
      {});
  if (!opened) return std::nullopt;
  return total;
}

std::optional<std::int64_t> DiskRequirement::volumeFreeBytes(const Path& path) {
  if (const auto capacity = machine().files.volumeAvailableCapacity(path)) return capacity;
  return machine().files.fileSystemFreeSize(path);
}

}  // namespace installer
