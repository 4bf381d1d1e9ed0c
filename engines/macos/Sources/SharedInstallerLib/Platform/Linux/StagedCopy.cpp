#include "Platform/Linux/StagedCopy.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <mutex>
#include <set>
#include <sys/stat.h>

#include "Platform/Linux/FileTree.h"

namespace installer {

namespace {

// The staging names that copies of this process are using. A leftover under our own process identifier stems
// from an earlier process that bore the same number.
struct ActiveNames {
  std::mutex mutex;
  std::multiset<std::string> names;
};

ActiveNames& active() {
  static auto* const instance = new ActiveNames;  // not destroyed at exit: a worker may still be copying
  return *instance;
}

bool isActive(const std::string& name) {
  const std::lock_guard lock{active().mutex};
  return active().names.contains(name);
}

std::string claimName(const std::string& prefix) {
  const std::lock_guard lock{active().mutex};
  std::string name = fmt::format("{}{}", prefix, ::getpid());
  for (int number = 1; active().names.contains(name); ++number) {
    name = fmt::format("{}{}.{}", prefix, ::getpid(), number);
  }
  active().names.insert(name);
  return name;
}

bool processLives(pid_t process) {
  return ::kill(process, 0) == 0 || errno == EPERM;
}

}  // namespace

bool renameWithoutReplacing(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  if (::renameat2(oldFolder, oldName, newFolder, newName, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (linkStatus(newFolder, newName)) {
    errno = EEXIST;
    return false;
  }
  return ::renameat(oldFolder, oldName, newFolder, newName) == 0;
}

StagedCopy::StagedCopy(int folder, const std::string& name)
    : folder_{folder},
      name_{name},
      // A name may be 255 bytes long; what is put around it needs a few of them.
      prefix_{fmt::format(".{}.kelo-copy-", name.substr(0, 200))},
      staging_{claimName(prefix_)} {
}

StagedCopy::~StagedCopy() {
  const int kept = errno;
  if (!committed_) (void)removeTree(folder_, staging_.c_str(), TreeOwner::ours);
  {
    const std::lock_guard lock{active().mutex};
    active().names.erase(active().names.find(staging_));
  }
  errno = kept;
}

void StagedCopy::clearLeftovers() const {
  const auto names = namesIn(folder_);
  if (!names) return;
  for (const std::string& entry : *names) {
    if (isLeftover(entry)) (void)removeTree(folder_, entry.c_str(), TreeOwner::ours);
  }
}

bool StagedCopy::isLeftover(const std::string& entry) const {
  if (!entry.starts_with(prefix_)) return false;
  pid_t process = 0;
  const char* const end = entry.data() + entry.size();
  const auto [rest, error] = std::from_chars(entry.data() + prefix_.size(), end, process);
  if (error != std::errc{} || process <= 0 || (rest != end && *rest != '.')) return false;
  if (process == ::getpid()) return entry == staging_ || !isActive(entry);
  return !processLives(process);
}

bool StagedCopy::commit() {
  committed_ = renameWithoutReplacing(folder_, staging_.c_str(), folder_, name_.c_str());
  return committed_;
}

}  // namespace installer
