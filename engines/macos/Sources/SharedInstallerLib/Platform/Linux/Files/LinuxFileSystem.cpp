#include <climits>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/WholeFile.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

std::optional<struct stat> followedStatus(const Path& path) {
  struct stat status{};
  if (path.find('\0') != Path::npos || ::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

bool grants(const Path& path, int mode) {
  return path.find('\0') == Path::npos && ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

class LinuxFileReader : public FileReader {
 public:
  LinuxFileReader(FileDescriptor file, Path path) : file_{std::move(file)}, path_{std::move(path)} {}

  Result<std::string> read(std::size_t maximum) override {
    std::string bytes(maximum, '\0');
    const auto count = retryInterrupted([&] { return ::read(file_.get(), bytes.data(), bytes.size()); });
    if (count < 0) return fileFailure(FileAccess::read, errno, path_, "read");
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }

 private:
  FileDescriptor file_;
  Path path_;
};

Result<> makeOne(const Path& path, FileSystem::Intermediates intermediates) {
  if (::mkdir(path.c_str(), 0777) == 0) return {};
  const int refusal = errno;
  const auto status = followedStatus(path);
  if (intermediates == FileSystem::Intermediates::create && status && S_ISDIR(status->st_mode)) return {};
  return fileFailure(FileAccess::write, refusal, path, "created");
}

std::optional<std::int64_t> freeBytes(const Path& path) {
  struct statvfs volume{};
  if (path.find('\0') != Path::npos || ::statvfs(path.c_str(), &volume) != 0) return std::nullopt;
  return static_cast<std::int64_t>(volume.f_bavail) * static_cast<std::int64_t>(volume.f_frsize);
}

}  // namespace

bool LinuxFileSystem::fileExists(const Path& path) {
  return followedStatus(path).has_value();
}

bool LinuxFileSystem::directoryExists(const Path& path) {
  const auto status = followedStatus(path);
  return status && S_ISDIR(status->st_mode);
}

bool LinuxFileSystem::isWritable(const Path& path) {
  return grants(path, W_OK);
}

bool LinuxFileSystem::isExecutable(const Path& path) {
  return grants(path, X_OK);
}

Result<FileAttributes> LinuxFileSystem::attributes(const Path& path) {
  const auto usable = usablePath(path);
  const auto status = usable ? linkStatus(AT_FDCWD, usable->c_str()) : std::nullopt;
  if (!status) return fileFailure(FileAccess::read, errno, path, "examined");
  return FileAttributes{
      .size = status->st_size, .isSymbolicLink = S_ISLNK(status->st_mode), .identity = identityOf(*status)};
}

Result<> LinuxFileSystem::createDirectory(const Path& path, Intermediates intermediates) {
  const auto usable = usablePath(path);
  if (!usable) return fileFailure(FileAccess::write, errno, path, "created");
  // No system call accepts a longer path, and the calls below recurse as deep as the path.
  if (usable->size() >= PATH_MAX) return fileFailure(FileAccess::write, ENAMETOOLONG, path, "created");
  if (intermediates == Intermediates::require || directoryExists(*usable)) {
    return makeOne(*usable, intermediates);
  }
  const Path parent = parentFolder(*usable);
  if (!parent.empty() && parent != *usable) {
    if (auto made = createDirectory(parent, intermediates); !made) return handOn(made);
  }
  return makeOne(*usable, intermediates);
}

Result<std::string> LinuxFileSystem::readFile(const Path& path) {
  return readWholeFile(path);
}

Result<> LinuxFileSystem::writeFile(const Path& path, std::string_view bytes) {
  return replaceFile(path, bytes);
}

Result<std::unique_ptr<FileReader>> LinuxFileSystem::openForReading(const Path& path) {
  FileDescriptor file = openRegular(path);
  if (!file) return fileFailure(FileAccess::read, errno, path, "opened");
  return std::make_unique<LinuxFileReader>(std::move(file), path);
}

std::optional<std::int64_t> LinuxFileSystem::volumeAvailableCapacity(const Path& path) {
  return freeBytes(path);
}

std::optional<std::int64_t> LinuxFileSystem::fileSystemFreeSize(const Path& path) {
  return freeBytes(path);
}

}  // namespace installer
