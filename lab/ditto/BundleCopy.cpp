#include "ditto/BundleCopy.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "support/Attributes.h"
#include "support/Files.h"
#include "support/Interruption.h"

namespace lab {
namespace {

constexpr std::string_view kWorkPrefix = ".ditto-";

// A folder held by its descriptor, so that a later change of a name in its path has no effect. `path` +
// "/name" is an entry in it, without links before the name.
struct Pinned {
  installer::FileDescriptor folder;
  fs::path path;

  explicit Pinned(int descriptor) : folder{descriptor}, path{fmt::format("/proc/self/fd/{}", folder.get())} {}
};

// The folder at the absolute `path`; without a descriptor when it doesn't exist or its path has a link.
Pinned pinnedFolder(const fs::path& path) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  return Pinned{static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof(how)))};
}

OrReason<struct stat> look(const fs::path& path) {
  struct stat status{};
  if (lstat(path.c_str(), &status) != 0) return becauseOfErrno(path.string());
  return status;
}

bool isFolder(const fs::path& path) {
  const auto status = look(path);
  return status && S_ISDIR(status->st_mode);
}

bool isBelow(const fs::path& path, const fs::path& folder) {
  const fs::path within = path.lexically_relative(folder);
  return !within.empty() && within != "." && *within.begin() != "..";
}

class Copy {
 public:
  explicit Copy(QuarantineMark quarantine) : quarantine_(quarantine) {}

  // `to` must be a folder.
  OrReason<> merge(const fs::path& from, const fs::path& to) const {
    const Pinned source{open(from.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (!source.folder) return becauseOfErrno(from.filename().string());
    std::vector<fs::path> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(source.path, error))
      names.push_back(entry.path().filename());
    if (error) return because("{}: {}", from.filename().string(), error.message());
    for (const fs::path& name : names) {
      if (interruption() != 0) return because("interrupted");
      const auto copied = copyEntry(source.path / name, to / name);
      if (!copied) return copied;
    }
    return keepFacts(source.path / ".", to);
  }

  OrReason<> copyEntry(const fs::path& from, const fs::path& to) const {
    const auto status = look(from);
    if (!status) return handOn(status);
    if (S_ISDIR(status->st_mode)) return copyFolder(from, to);
    if (isFolder(to)) return because("{}: Is a directory", to.string());
    if (S_ISLNK(status->st_mode)) return copyLink(from, to);
    if (S_ISREG(status->st_mode)) return copyFile(from, to);
    return because("{}: neither file, folder nor link", from.filename().string());
  }

 private:
  OrReason<> copyFolder(const fs::path& from, const fs::path& to) const {
    if (mkdir(to.c_str(), 0700) == 0) return merge(from, to);
    if (errno != EEXIST || !isFolder(to)) return becauseOfErrno(to.string());
    clearLeftovers(to, kWorkPrefix);
    return merge(from, to);
  }

  OrReason<> copyLink(const fs::path& from, const fs::path& to) const {
    std::error_code error;
    const fs::path target = fs::read_symlink(from, error);
    if (error) return because("{}: {}", from.filename().string(), error.message());
    if (unlink(to.c_str()) != 0 && errno != ENOENT) return becauseOfErrno(to.string());
    if (symlink(target.c_str(), to.c_str()) != 0) return becauseOfErrno(to.string());
    return keepFacts(from, to);
  }

  OrReason<> copyFile(const fs::path& from, const fs::path& to) const {
    std::string sibling = (to.parent_path() / nameOfWork(kWorkPrefix)).string();
    const installer::FileDescriptor output{mkostemp(sibling.data(), O_CLOEXEC)};
    if (!output) return becauseOfErrno(to.string());
    auto copied = copyBytes(from, output.get());
    if (copied) copied = keepFacts(from, sibling);
    if (copied && rename(sibling.c_str(), to.c_str()) != 0) copied = becauseOfErrno(to.string());
    if (!copied) unlink(sibling.c_str());
    return copied;
  }

  static OrReason<> copyBytes(const fs::path& from, int output) {
    const std::string name = from.filename().string();
    const installer::FileDescriptor input{open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
    struct stat status{};
    if (!input || fstat(input.get(), &status) != 0) return becauseOfErrno(name);
    if (!S_ISREG(status.st_mode)) return because("{}: it isn't a file any more", name);
    std::string buffer(std::size_t{1} << 20U, '\0');
    while (true) {
      const ssize_t count = read(input.get(), buffer.data(), buffer.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return becauseOfErrno(name);
      if (count == 0) return {};
      const auto written = writeAll(output, {buffer.data(), static_cast<std::size_t>(count)});
      if (!written) return because("{}: {}", name, written.error());
    }
  }

  // Copies owner, attributes, mode and times, in an order in which no step undoes another.
  OrReason<> keepFacts(const fs::path& from, const fs::path& to) const {
    const auto status = look(from);
    if (!status) return handOn(status);
    if (geteuid() == 0 && lchown(to.c_str(), status->st_uid, status->st_gid) != 0)
      return becauseOfErrno(to.string());
    if (!S_ISLNK(status->st_mode)) {
      const auto kept = keepAttributes(from, to);
      if (!kept) return kept;
      if (chmod(to.c_str(), status->st_mode & 07777U) != 0) return becauseOfErrno(to.string());
    }
    const timespec times[2] = {status->st_atim, status->st_mtim};
    if (utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) return becauseOfErrno(to.string());
    return {};
  }

  OrReason<> keepAttributes(const fs::path& from, const fs::path& to) const {
    const auto names = attributeNames(from);
    if (!names) return handOn(names);
    for (const std::string& name : *names) {
      if (quarantine_ == QuarantineMark::drop && name == kQuarantineAttribute) continue;
      const auto value = attribute(from, name);
      if (!value) return handOn(value);
      if (!value->has_value()) continue;
      const auto set = setAttribute(to, name, **value);
      if (!set && !keepsNoAttributes(to)) return set;
    }
    return {};
  }

  QuarantineMark quarantine_;
};

// Makes the folder under a hidden name beside its destination, and renames it.
OrReason<> copyFolderAtOnce(const Copy& copy, const fs::path& source, const fs::path& destination) {
  std::error_code error;
  fs::create_directories(destination.parent_path(), error);
  std::string sibling = (destination.parent_path() / nameOfWork(kWorkPrefix)).string();
  if (mkdtemp(sibling.data()) == nullptr) return becauseOfErrno(destination.string());
  auto copied = copy.merge(source, sibling);
  if (copied && rename(sibling.c_str(), destination.c_str()) != 0)
    copied = becauseOfErrno(destination.string());
  if (!copied) (void)removeTree(sibling);  // only the first failure is reported
  return copied;
}

}  // namespace

OrReason<> copyLikeDitto(const fs::path& source, const fs::path& destination, QuarantineMark quarantine) {
  std::error_code error;
  fs::path absolute = fs::absolute(source).lexically_normal();
  if (!absolute.has_filename()) absolute = absolute.parent_path();
  const Pinned parent = pinnedFolder(absolute.parent_path());
  const fs::path from = parent.path / absolute.filename();
  if (!parent.folder || !itemExists(from) || fs::is_symlink(from, error))
    return because("Cannot get the real path for source '{}'", source.string());
  fs::path to = fs::absolute(destination).lexically_normal();
  if (!to.has_filename()) to = to.parent_path();
  clearLeftovers(to.parent_path(), kWorkPrefix);
  const Copy copy{quarantine};
  if (!isFolder(from))
    return copy.copyEntry(from, fs::is_directory(to, error) ? to / absolute.filename() : to);
  if (isBelow(fs::weakly_canonical(to, error), fs::weakly_canonical(absolute, error)))
    return because("{}: a folder can't be copied into itself", to.string());
  if (fs::is_directory(to, error)) {
    clearLeftovers(to, kWorkPrefix);
    return copy.merge(from, to);
  }
  if (itemExists(to)) return because("{}: Not a directory", to.string());
  return copyFolderAtOnce(copy, from, to);
}

}  // namespace lab
