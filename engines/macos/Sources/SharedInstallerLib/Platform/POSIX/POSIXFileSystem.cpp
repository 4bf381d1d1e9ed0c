#include "Platform/POSIX/POSIXFileSystem.h"

#include <cerrno>
#include <fcntl.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/ItemLock.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

namespace {

class Appender final : public FileAppender {
 public:
  Appender(FileDescriptor file, Path path) : file_{std::move(file)}, path_{std::move(path)} {}

  Result<> write(std::string_view bytes) override {
    // One call: the kernel seeks to the end and writes in one step. Only a full volume or a signal makes the
    // write short.
    if (!writeAll(file_.get(), bytes)) return fileFailure(FileAccess::write, errno, path_, "written");
    return {};
  }

  Result<FileAttributes> attributes() override {
    struct stat status{};
    if (::fstat(file_.get(), &status) != 0) return fileFailure(FileAccess::read, errno, path_, "examined");
    return FileAttributes{.size = status.st_size, .identity = identityOf(status)};
  }

 private:
  FileDescriptor file_;
  Path path_;
};

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

Result<> POSIXFileSystem::moveItem(const Path& source, const Path& destination) {
  constexpr auto moved = "moved";
  const auto from = usablePath(source);
  if (!from) return fileFailure(FileAccess::write, errno, source, moved);
  const auto to = usablePath(destination);
  if (!to) return fileFailure(FileAccess::write, errno, destination, moved);
  if (renameWithoutReplacing(AT_FDCWD, from->c_str(), AT_FDCWD, to->c_str())) return {};
  if (errno != EXDEV) {
    return fileFailure(FileAccess::write, errno, errno == EEXIST ? destination : source, moved);
  }
  if (auto made = copyItem(source, destination); !made) return handOn(made);
  // The copy stays even if the removal of the original fails: it may be the only complete one.
  return removeItem(source);
}

Result<std::unique_ptr<FileAppender>> POSIXFileSystem::openForAppending(const Path& path) {
  const auto usable = usablePath(path);
  FileDescriptor file{usable ? ::open(usable->c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK) : -1};
  if (!file) return fileFailure(FileAccess::write, errno, path, "opened");
  return std::make_unique<Appender>(std::move(file), path);
}

bool POSIXFileSystem::isHiddenVolume(const Path& path) {
  const auto usable = usablePath(path);
  return usable && installer::isHiddenVolume(usable->c_str());
}

Result<std::unique_ptr<FileLock>> POSIXFileSystem::tryLock(const Path& path) {
  if (auto lock = ItemLock::tryTake(path)) return std::make_unique<DescriptorLock>(*std::move(lock));
  // A process without a free descriptor can't know whether the lock is held.
  if (errno == EWOULDBLOCK || errno == EMFILE || errno == ENFILE || errno == ENOMEM) return nullptr;
  return fileFailure(FileAccess::read, errno, path, "locked");
}

}  // namespace installer
