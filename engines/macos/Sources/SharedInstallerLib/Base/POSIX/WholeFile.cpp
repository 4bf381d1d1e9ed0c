#include "Base/POSIX/WholeFile.h"

#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"

namespace installer {

namespace {

constexpr mode_t kPermissionBits = S_ISUID | S_ISGID | S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;

// A hidden sibling that a rename makes the file; the destructor removes it if it wasn't renamed.
class Replacement {
 public:
  Replacement(int folder, std::string name)
      : folder_{folder}, name_{std::move(name)}, sibling_{folder, name_, kWritePurpose} {}
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (made_) ::unlinkat(folder_, sibling_.name(), 0);
  }

  bool write(std::string_view bytes) {
    struct stat old{};
    const bool replaces = ::fstatat(folder_, name_.c_str(), &old, 0) == 0;
    const FileDescriptor file{
        ::openat(folder_, sibling_.name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)};
    if (!file) return false;
    made_ = true;
    if (replaces && S_ISREG(old.st_mode) && ::fchmod(file.get(), old.st_mode & kPermissionBits) != 0)
      return false;
    return writeAll(file.get(), bytes) && ::fsync(file.get()) == 0;
  }

  bool commit() {
    if (::renameat(folder_, sibling_.name(), folder_, name_.c_str()) != 0) return false;
    made_ = false;
    return true;
  }

 private:
  int folder_;
  std::string name_;
  HiddenSibling sibling_;
  bool made_ = false;
};

FileDescriptor folderOf(const Path& path) {
  const Path folder = parentFolder(path);
  return FileDescriptor{::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
}

}  // namespace

Result<std::string> readWholeFile(const Path& path, std::size_t maximumBytes) {
  const FileDescriptor file = openRegular(path);
  if (!file) return fileFailure(FileAccess::read, errno, path, "read");
  constexpr std::size_t piece = 16UL * 1024;  // `resize` fills it with zeroes
  std::string bytes;
  while (bytes.size() <= maximumBytes) {
    const std::size_t have = bytes.size();
    bytes.resize(have + piece);
    const auto count = retryInterrupted([&] { return ::read(file.get(), bytes.data() + have, piece); });
    if (count < 0) return fileFailure(FileAccess::read, errno, path, "read");
    bytes.resize(have + static_cast<std::size_t>(count));
    if (count == 0) return bytes;
  }
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt,
                 fmt::format("“{}” is longer than {} bytes.", path, maximumBytes));
}

Result<> replaceFile(const Path& path, std::string_view bytes) {
  const auto usable = usablePath(path);
  if (!usable) return fileFailure(FileAccess::write, errno, path, "written");
  const FileDescriptor folder = folderOf(*usable);
  if (!folder) return fileFailure(FileAccess::write, errno, path, "written");
  Replacement replacement{folder.get(), lastPathComponent(*usable)};
  if (!replacement.write(bytes) || !replacement.commit()) {
    return fileFailure(FileAccess::write, errno, path, "written");
  }
  return {};
}

}  // namespace installer
