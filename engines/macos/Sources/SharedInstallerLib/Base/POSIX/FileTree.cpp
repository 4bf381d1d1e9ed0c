#include "Base/POSIX/FileTree.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

namespace {

bool removeContents(int folder, TreeOwner owner, int levels) {
  const auto names = namesIn(folder);
  if (!names) return false;
  return std::ranges::all_of(
      *names, [&](const std::string& name) { return removeTree(folder, name.c_str(), owner, levels); });
}

bool removeEntry(int folder, const char* name, TreeOwner owner, int levels) {
  if (::unlinkat(folder, name, 0) == 0) return true;
  // For a directory this fails with EISDIR on Linux and EPERM elsewhere, so its type is checked instead.
  const int refusal = errno;
  const auto status = linkStatus(folder, name);
  if (!status) return false;
  if (!S_ISDIR(status->st_mode)) {
    errno = refusal;
    return false;
  }
  if (::unlinkat(folder, name, AT_REMOVEDIR) == 0) return true;
  if (errno != ENOTEMPTY && errno != EEXIST) return false;
  if (levels == 0) {
    errno = ENAMETOOLONG;
    return false;
  }
  // Another process may replace the folder by a link, whose target must keep its mode.
  if (owner == TreeOwner::ours && (status->st_mode & S_IRWXU) != S_IRWXU &&
      ::fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  const FileDescriptor inside = openFolder(folder, name);
  if (!inside || !removeContents(inside.get(), owner, levels - 1)) return false;
  return ::unlinkat(folder, name, AT_REMOVEDIR) == 0;
}

}  // namespace

std::optional<Path> usablePath(const Path& path) {
  if (path.empty() || path.find('\0') != Path::npos) {
    errno = path.empty() ? ENOENT : EINVAL;
    return std::nullopt;
  }
  Path usable = path;
  while (usable.size() > 1 && usable.back() == '/') usable.pop_back();
  return usable;
}

Path currentDirectory() {
  const std::unique_ptr<char, decltype(&std::free)> path{::getcwd(nullptr, 0), &std::free};
  return path != nullptr ? path.get() : "/";
}

std::optional<struct stat> linkStatus(int folder, const char* name) {
  struct stat status{};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return status;
}

std::optional<std::vector<std::string>> namesIn(int folder) {
  // A new open file description: a duplicate would share the read position.
  FileDescriptor own{::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!own) return std::nullopt;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream{::fdopendir(own.get()), &::closedir};
  if (stream == nullptr) return std::nullopt;
  own.release();
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(stream.get());
    if (entry == nullptr) break;
    std::string name{static_cast<const char*>(entry->d_name)};
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  if (errno != 0) return std::nullopt;
  return names;
}

FileDescriptor openFolder(int folder, const char* name) {
  return FileDescriptor{::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
}

FileDescriptor openRegular(const Path& path) {
  const auto usable = usablePath(path);
  if (!usable) return {};
  FileDescriptor file{
      retryInterrupted([&] { return ::open(usable->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); })};
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0) return {};
  if (S_ISREG(status.st_mode)) return file;
  file.reset();
  errno = S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
  return file;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = retryInterrupted([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// ENOENT is a success: another process may be removing the same tree.
bool removeTree(int folder, const char* name, TreeOwner owner, int levels) {
  return removeEntry(folder, name, owner, levels) || errno == ENOENT;
}

}  // namespace installer
