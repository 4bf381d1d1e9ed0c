#include "Platform/Linux/Files/TreeCopier.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <utility>
#include <vector>

#include "Base/POSIX/FileTree.h"

namespace installer {

namespace {

// Without set-id bits: the copy belongs to the user who makes it, so a copy made as root would run with
// root's rights.
mode_t keptMode(const struct stat& status) {
  return status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
}

// Failures are ignored: attributes are kept only where the volume supports them.
void copyAttributes(int source, int target) {
  const auto size = ::flistxattr(source, nullptr, 0);
  if (size <= 0) return;
  std::vector<char> names(static_cast<std::size_t>(size));
  const auto listed = ::flistxattr(source, names.data(), names.size());
  std::vector<char> value;
  for (ssize_t at = 0; at < listed;) {
    const char* const name = names.data() + at;
    at += static_cast<ssize_t>(std::strlen(name)) + 1;
    const auto length = ::fgetxattr(source, name, nullptr, 0);
    if (length < 0) continue;
    value.resize(static_cast<std::size_t>(length));
    const auto got = ::fgetxattr(source, name, value.data(), value.size());
    if (got >= 0) (void)::fsetxattr(target, name, value.data(), static_cast<std::size_t>(got), 0);
  }
}

// The last step: the mode may remove our permission to write, and writing changes the times.
bool finish(int source, int target, const struct stat& status) {
  copyAttributes(source, target);
  const timespec times[2] = {status.st_atim, status.st_mtim};
  return ::fchmod(target, keptMode(status)) == 0 && ::futimens(target, times) == 0;
}

}  // namespace

bool TreeCopier::notReadable() {
  failedReading_ = true;
  return false;
}

bool TreeCopier::copy(int sourceFolder, const char* sourceName, int folder, const char* name) {
  const auto status = linkStatus(sourceFolder, sourceName);
  if (!status) return notReadable();
  if (S_ISREG(status->st_mode)) return copyFile(sourceFolder, sourceName, folder, name, *status);
  if (S_ISLNK(status->st_mode)) return copyLink(sourceFolder, sourceName, folder, name, *status);
  if (S_ISDIR(status->st_mode)) return copyFolder(sourceFolder, sourceName, folder, name, *status);
  errno = ENOTSUP;
  return notReadable();
}

bool TreeCopier::copyFile(int sourceFolder, const char* sourceName, int folder, const char* name,
                          const struct stat& status) {
  const FileDescriptor source{
      ::openat(sourceFolder, sourceName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)};
  if (!source) return notReadable();
  const FileDescriptor target{::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
  if (!target || !remember(target.get())) return false;
  if (!copyBytes(source.get(), target.get())) return false;
  // The disk writes this file while the next one is copied; `StagedCopy` then waits less. Volumes without the
  // call fail, which is ignored.
  (void)::sync_file_range(target.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
  return finish(source.get(), target.get(), status);
}

bool TreeCopier::copyLink(int sourceFolder, const char* sourceName, int folder, const char* name,
                          const struct stat& status) {
  std::string destination(PATH_MAX, '\0');
  const auto length = ::readlinkat(sourceFolder, sourceName, destination.data(), destination.size());
  if (length < 0) return notReadable();
  destination.resize(static_cast<std::size_t>(length));
  if (::symlinkat(destination.c_str(), folder, name) != 0 || !remember(folder, name)) return false;
  const timespec times[2] = {status.st_atim, status.st_mtim};
  // Failures are ignored: some volumes can't set a link's times.
  (void)::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW);
  return true;
}

bool TreeCopier::copyFolder(int sourceFolder, const char* sourceName, int folder, const char* name,
                            const struct stat& status) {
  if (!mayEnter(status)) return notReadable();
  const FileDescriptor source = openFolder(sourceFolder, sourceName);
  if (!source) return notReadable();
  if (::mkdirat(folder, name, S_IRWXU) != 0) return false;
  const FileDescriptor target = openFolder(folder, name);
  if (!target || !remember(target.get())) return false;
  ++depth_;
  const bool copied = copyContents(source.get(), target.get());
  --depth_;
  return copied && finish(source.get(), target.get(), status);
}

bool TreeCopier::copyContents(int source, int target) {
  const auto names = namesIn(source);
  if (!names) return notReadable();
  for (const std::string& name : *names) {
    if (!copy(source, name.c_str(), target, name.c_str())) return false;
  }
  return true;
}

// Clones the blocks if the volume can, else lets the kernel copy, else copies through a buffer.
bool TreeCopier::copyBytes(int source, int target) {
  if (::ioctl(target, FICLONE, source) == 0) return true;
  constexpr std::size_t stretch = 64UL * 1024 * 1024;
  for (;;) {
    const auto count =
        retryInterrupted([&] { return ::copy_file_range(source, nullptr, target, nullptr, stretch, 0); });
    if (count == 0) break;
    if (count > 0) continue;
    if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) return false;
    break;
  }
  // Continues where the kernel stopped: at the end for most files, at the start on volumes without the call
  // and for files whose reported size is 0 although they have content. The buffer isn't filled with zeroes,
  // which would take a fifth of the time for small files.
  constexpr std::size_t size = 1024UL * 1024;
  const auto buffer = std::make_unique_for_overwrite<char[]>(size);
  for (;;) {
    const auto count = retryInterrupted([&] { return ::read(source, buffer.get(), size); });
    if (count < 0) return notReadable();
    if (count == 0) return true;
    if (!writeAll(target, {buffer.get(), static_cast<std::size_t>(count)})) return false;
  }
}

bool TreeCopier::remember(int made, const char* name) {
  if (std::exchange(topMade_, true)) return true;
  return ::fstatat(made, name, &top_, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0;
}

bool TreeCopier::mayEnter(const struct stat& status) const {
  const bool isOurOwn = topMade_ && status.st_dev == top_.st_dev && status.st_ino == top_.st_ino;
  errno = isOurOwn ? EINVAL : ENAMETOOLONG;
  return !isOurOwn && depth_ < kDeepestFolder;
}

}  // namespace installer
