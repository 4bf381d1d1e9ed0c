#include <fcntl.h>
#include <sys/stat.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

constexpr std::int64_t kStatusBlock = 512;  // the unit of st_blocks, on every volume

DirectoryEntry entryOf(const Path& path, const struct stat& status) {
  DirectoryEntry entry;
  entry.path = path;
  entry.isDirectory = S_ISDIR(status.st_mode);
  entry.isSymbolicLink = S_ISLNK(status.st_mode);
  entry.isRegularFile = S_ISREG(status.st_mode);
  if (!entry.isDirectory) {
    entry.fileAllocatedSize = static_cast<std::int64_t>(status.st_blocks) * kStatusBlock;
    entry.totalFileAllocatedSize = entry.fileAllocatedSize;
  }
  return entry;
}

struct Walk {
  HiddenEntries hidden;
  const FileSystem::Visitor& visit;
  const FileSystem::ErrorHandler& onError;

  void report(const Path& folder) const {
    if (onError) onError(folder, fileError(FileAccess::read, errno, folder, "listed"));
  }

  void contents(const FileDescriptor& folder, const Path& path, int depth) const {
    const auto names = namesIn(folder.get());
    if (!names) {
      report(path);
      return;
    }
    for (const std::string& name : *names) {
      if (hidden == HiddenEntries::skip && name.front() == '.') continue;
      entry(folder, name, joined(path, name), depth);
    }
  }

  void entry(const FileDescriptor& folder, const std::string& name, const Path& path, int depth) const {
    const auto status = linkStatus(folder.get(), name.c_str());
    if (!status) return;
    const DirectoryEntry found = entryOf(path, *status);
    if (visit(found) == Descend::no || !found.isDirectory) return;
    const bool tooDeep = depth == kDeepestFolder;
    const FileDescriptor inside = tooDeep ? FileDescriptor{} : openFolder(folder.get(), name.c_str());
    if (tooDeep) errno = ENAMETOOLONG;
    if (!inside) {
      report(path);
      return;
    }
    contents(inside, path, depth + 1);
  }
};

}  // namespace

Result<std::vector<std::string>> LinuxFileSystem::contentsOfDirectory(const Path& path) {
  const auto usable = usablePath(path);
  const FileDescriptor folder{usable ? ::open(usable->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1};
  if (!folder) return fileFailure(FileAccess::read, errno, path, "listed");
  auto names = namesIn(folder.get());
  if (!names) return fileFailure(FileAccess::read, errno, path, "listed");
  return *std::move(names);
}

bool LinuxFileSystem::enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                                const ErrorHandler& onError) {
  const auto usable = usablePath(top);
  if (!usable) return false;
  const FileDescriptor folder{::open(usable->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!folder) return false;
  Walk{hidden, visit, onError}.contents(folder, *usable, 0);
  return true;
}

}  // namespace installer
