#include "Base/POSIX/WholeFile.h"

#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"

namespace installer {

namespace {

constexpr mode_t kPermissionBits = S_ISUID | S_ISGID | S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO;

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

FileReplacement::FileReplacement(const Path& path) {
  const auto usable = usablePath(path);
  if (!usable) return;
  name_ = lastPathComponent(*usable);
  folder_ = folderOf(*usable);
  if (!folder_) return;
  sibling_.emplace(folder_.get(), name_, kWritePurpose);
  struct stat old{};
  const bool replaces = ::fstatat(folder_.get(), name_.c_str(), &old, 0) == 0 && S_ISREG(old.st_mode);
  file_.reset(::openat(folder_.get(), sibling_->name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file_ || !replaces || ::fchmod(file_.get(), old.st_mode & kPermissionBits) == 0) return;
  file_.reset();
  ::unlinkat(folder_.get(), sibling_->name(), 0);
}

FileReplacement::~FileReplacement() {
  if (file_) ::unlinkat(folder_.get(), sibling_->name(), 0);
}

bool FileReplacement::commit() {
  if (::renameat(folder_.get(), sibling_->name(), folder_.get(), name_.c_str()) != 0) return false;
  file_.reset();
  return true;
}

Result<> replaceFile(const Path& path, std::string_view bytes) {
  FileReplacement replacement{path};
  const FileDescriptor& file = replacement.file();
  if (file && writeAll(file.get(), bytes) && ::fsync(file.get()) == 0 && replacement.commit()) return {};
  return fileFailure(FileAccess::write, errno, path, "written");
}

}  // namespace installer
