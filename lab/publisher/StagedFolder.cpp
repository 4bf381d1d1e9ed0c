#include "publisher/StagedFolder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "support/Files.h"

namespace lab {

namespace {

// Makes a hard link, or a copy if that fails.
OrReason<> linkOrCopy(const fs::path& from, const fs::path& to) {
  std::error_code error;
  if (fs::is_directory(fs::symlink_status(from, error))) {
    return because("{} is a folder instead of a file", from.string());
  }
  fs::create_hard_link(from, to, error);
  if (error) fs::copy(from, to, fs::copy_options::copy_symlinks, error);
  if (error) return because("{}: {}", to.string(), error.message());
  return {};
}

bool canNotExchange(int number) {
  return number == EINVAL || number == ENOSYS || number == EOPNOTSUPP;
}

}  // namespace

OrReason<StagedFolder> StagedFolder::inPlaceOf(const fs::path& folder,
                                               const std::vector<std::string>& without) {
  // For a link, its target folder is replaced, and the link stays.
  const auto place = fs::is_symlink(folder) ? fs::weakly_canonical(folder) : folder;
  const auto parent = place.parent_path();
  installer::FileDescriptor lock{open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!lock) return becauseOfErrno(parent.string());
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    return because("another publication to {} is under way", parent.string());
  }
  StagedFolder staged{place, parent / ("." + place.filename().string() + ".publishing"), std::move(lock)};
  if (auto cleared = removeTree(staged.path_); !cleared) return handOn(cleared);
  std::error_code error;
  fs::create_directory(staged.path_, error);
  if (error) return because("{}: {}", staged.path_.string(), error.message());
  if (auto taken = staged.takeOver(without); !taken) return handOn(taken);
  return staged;
}

StagedFolder::~StagedFolder() {
  // Failures are ignored: the next publication removes the folder.
  if (lock_) static_cast<void>(removeTree(path_));
}

OrReason<> StagedFolder::takeOver(const std::vector<std::string>& without) {
  if (!itemExists(folder_)) return {};
  std::error_code error;
  for (fs::directory_iterator entry{folder_, error}, end; !error && entry != end; entry.increment(error)) {
    const auto name = entry->path().filename().string();
    // A hidden entry is a leftover of an interrupted publication.
    if (name.starts_with('.') || std::ranges::find(without, name) != without.end()) continue;
    if (auto taken = linkOrCopy(entry->path(), path_ / name); !taken) return taken;
  }
  if (error) return because("{}: {}", folder_.string(), error.message());
  return {};
}

OrReason<> StagedFolder::commit(const std::string& last) {
  // Flushes the bytes before the names, so that a name never has incomplete content.
  if (syncfs(lock_.get()) != 0) return becauseOfErrno(path_.string());
  const unsigned how = itemExists(folder_) ? RENAME_EXCHANGE : RENAME_NOREPLACE;
  if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, folder_.c_str(), how) != 0) {
    if (!canNotExchange(errno)) return becauseOfErrno(folder_.string());
    if (auto replaced = replaceFileByFile(last); !replaced) return replaced;
  }
  fsync(lock_.get());
  return {};
}

OrReason<> StagedFolder::replaceFileByFile(const std::string& last) {
  std::error_code error;
  fs::create_directory(folder_, error);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator{path_, error}) {
    const auto name = entry.path().filename().string();
    if (name != last) names.push_back(name);
  }
  names.push_back(last);
  for (const auto& name : names) {
    if (!error) fs::rename(path_ / name, folder_ / name, error);
  }
  if (error) return because("{}: {}", folder_.string(), error.message());
  for (const auto& entry : fs::directory_iterator{folder_, error}) {
    const auto name = entry.path().filename().string();
    if (std::ranges::find(names, name) != names.end()) continue;
    if (auto removed = removeTree(entry.path()); !removed) return removed;
  }
  return {};
}

}  // namespace lab
