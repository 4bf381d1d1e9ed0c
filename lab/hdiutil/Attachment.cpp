#include "hdiutil/Attachment.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "diskimage/DiskImage.h"
#include "diskimage/VolumeExtraction.h"
#include "support/Files.h"
#include "support/Interruption.h"

namespace lab {
namespace {

OrReason<> checkImage(const fs::path& image, const AttachOptions& options) {
  std::error_code error;
  if (!fs::exists(image, error)) return because("No such file or directory");
  const auto trailer = readTrailer(image);
  if (!trailer) return because("image not recognized: {}", trailer.error());
  if (!options.verifiesChecksums) return {};
  const auto verified = verifyChecksums(image);
  if (!verified) return because("corrupt image: {}", verified.error());
  return {};
}

std::string freeDisk(const std::vector<Mount>& mounts) {
  for (int number = 4;; ++number) {
    std::string disk = fmt::format("/dev/disk{}", number);
    if (std::ranges::none_of(mounts, [&](const Mount& mount) { return mount.disk == disk; })) return disk;
  }
}

// Moves the volume to the first free name and gives its root the mode.
OrReason<std::string> moveIntoPlace(const fs::path& volumes, const ExtractedVolume& volume, mode_t mode) {
  const std::string name = volume.name.starts_with('.') ? "untitled" : volume.name;
  for (int suffix = 0;; ++suffix) {
    const std::string candidate = suffix == 0 ? name : fmt::format("{} {}", name, suffix);
    const fs::path mountPoint = volumes / candidate;
    chmod(volume.folder.c_str(), 0755);
    if (renameat2(AT_FDCWD, volume.folder.c_str(), AT_FDCWD, mountPoint.c_str(), RENAME_NOREPLACE) == 0) {
      chmod(mountPoint.c_str(), mode);
      return mountPoint.string();
    }
    if (errno != EEXIST) return becauseOfErrno(mountPoint.string());
  }
}

// Identifies the file: another file at its path, even with the same inode, has another time.
std::string fileOf(const fs::path& image) {
  struct stat status{};
  if (stat(image.c_str(), &status) != 0) return {};
  return fmt::format("{}:{}:{}:{}.{:09}", status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                     status.st_mtim.tv_nsec);
}

std::optional<Mount> mountOf(const std::vector<Mount>& mounts, const std::string& imageFile) {
  const auto found = std::ranges::find(mounts, imageFile, &Mount::imageFile);
  return found != mounts.end() ? std::optional{*found} : std::nullopt;
}

OrReason<> mountVolume(const MountTable& table, const fs::path& image, const ExtractedVolume& volume,
                       mode_t mode, const Tell& tell) {
  Mount mount{fs::absolute(image).lexically_normal().string(), "", "",
              volume.format == VolumeFormat::hfs ? "hfs" : "apfs", fileOf(image)};
  const auto stored = table.update([&](std::vector<Mount>& mounts) -> OrReason<> {
    if (interruption() != 0) return because("interrupted");
    // Another process may have attached the image during the extraction.
    if (const auto standing = mountOf(mounts, mount.imageFile)) return tell(*standing);
    const auto mountPoint = moveIntoPlace(table.volumes(), volume, mode);
    if (!mountPoint) return handOn(mountPoint);
    mount.mountPoint = *mountPoint;
    mount.disk = freeDisk(mounts);
    mounts.push_back(mount);
    return tell(mount);
  });
  if (!stored && !mount.mountPoint.empty())
    (void)removeTree(mount.mountPoint);  // only the first failure is reported
  return stored;
}

bool names(const Mount& mount, const std::string& mountPointOrDisk) {
  std::error_code error;
  if (fs::weakly_canonical(mountPointOrDisk, error) == mount.mountPoint && !error) return true;
  const std::string disk =
      mountPointOrDisk.starts_with("disk") ? "/dev/" + mountPointOrDisk : mountPointOrDisk;
  return disk == mount.disk || disk.starts_with(mount.disk + "s");
}

}  // namespace

OrReason<> attach(const MountTable& table, const fs::path& image, const AttachOptions& options,
                  const Tell& tell) {
  const auto checked = checkImage(image, options);
  if (!checked) return handOn(checked);
  const auto mounts = table.mounts();
  if (!mounts) return handOn(mounts);
  if (const auto standing = mountOf(*mounts, fileOf(image))) return tell(*standing);
  const auto working = table.workingFolder("attaching");
  if (!working) return handOn(working);
  const auto volume = extractVolume(image, *working);
  const mode_t mode = options.hidesVolume ? S_ISVTX | 0555 : 0555;
  const auto attached = volume ? mountVolume(table, image, *volume, mode, tell) : OrReason<>{handOn(volume)};
  const auto cleared = removeTree(*working);
  if (attached && !cleared) fmt::print(stderr, "hdiutil: {}\n", cleared.error());
  return attached;
}

OrReason<Mount> detach(const MountTable& table, const std::string& mountPointOrDisk) {
  const auto working = table.workingFolder("detaching");
  if (!working) return handOn(working);
  Mount detached;
  const auto updated = table.update([&](std::vector<Mount>& mounts) -> OrReason<> {
    const auto found =
        std::ranges::find_if(mounts, [&](const Mount& mount) { return names(mount, mountPointOrDisk); });
    if (found == mounts.end()) return because("No such file or directory");
    chmod(found->mountPoint.c_str(), 0755);
    if (rename(found->mountPoint.c_str(), (*working / "volume").c_str()) != 0)
      return becauseOfErrno(found->mountPoint);
    detached = *found;
    mounts.erase(found);
    return {};
  });
  const auto cleared = removeTree(*working);
  if (!updated) return handOn(updated);
  if (!cleared) return handOn(cleared);
  return detached;
}

}  // namespace lab
