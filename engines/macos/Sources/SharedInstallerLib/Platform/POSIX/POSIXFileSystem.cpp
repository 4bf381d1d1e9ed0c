#include "Platform/POSIX/POSIXFileSystem.h"

#include <cerrno>
#include <fcntl.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/ItemLock.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

namespace {

class DescriptorLock final : public FileLock {
 public:
  explicit DescriptorLock(ItemLock lock) : lock_{std::move(lock)} {}

 private:
  ItemLock lock_;
};

}  // namespace

FileIdentity identityOf(const struct stat& status) {
  return {.volume = static_cast<std::uint64_t>(status.st_dev),
          .number = static_cast<std::uint64_t>(status.st_ino)};
}

Result<FileAttributes> attributesOf(int descriptor, const Path& path) {
  struct stat status{};
  if (::fstat(descriptor, &status) != 0) return fileFailure(FileAccess::read, errno, path, "examined");
  return FileAttributes{.size = status.st_size, .identity = identityOf(status)};
}

Result<std::unique_ptr<FileLock>> tryFlock(const Path& path) {
  if (auto lock = ItemLock::tryTake(path)) return std::make_unique<DescriptorLock>(*std::move(lock));
  if (errno == EWOULDBLOCK) return nullptr;
  return fileFailure(FileAccess::read, errno, path, "locked");
}

Result<> moveByRename(FileSystem& files, const Path& source, const Path& destination) {
  constexpr auto moved = "moved";
  const auto from = usablePath(source);
  if (!from) return fileFailure(FileAccess::write, errno, source, moved);
  const auto to = usablePath(destination);
  if (!to) return fileFailure(FileAccess::write, errno, destination, moved);
  if (renameWithoutReplacing(AT_FDCWD, from->c_str(), AT_FDCWD, to->c_str())) return {};
  if (errno != EXDEV) {
    return fileFailure(FileAccess::write, errno, errno == EEXIST ? destination : source, moved);
  }
  if (auto made = files.copyItem(source, destination); !made) return made;
  // The copy stays even if the removal of the original fails: it may be the only complete one.
  return files.removeItem(source);
}

}  // namespace installer
