#include "Base/POSIX/ItemLock.h"

#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <utility>

#include "Base/Mutex.h"
#include "Base/POSIX/FileTree.h"

namespace installer {

namespace {

using LockedItem = std::pair<dev_t, ino_t>;

struct LockedItems {
  Mutex mutex;
  std::set<LockedItem> items GUARDED_BY(mutex);
};

LockedItems& lockedByUs() {
  static auto* const instance = new LockedItems;  // not destroyed at exit: a worker may still hold a lock
  return *instance;
}

std::optional<LockedItem> itemOf(int descriptor) {
  struct stat status{};
  if (::fstat(descriptor, &status) != 0) return std::nullopt;
  return LockedItem{status.st_dev, status.st_ino};
}

}  // namespace

std::optional<ItemLock> ItemLock::tryTake(const Path& path) {
  return take(path, LOCK_EX | LOCK_NB);
}

std::optional<ItemLock> ItemLock::take(const Path& path) {
  return take(path, LOCK_EX);
}

std::optional<ItemLock> ItemLock::take(const Path& path, int operation) {
  const auto usable = usablePath(path);
  FileDescriptor item{usable ? ::open(usable->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1};
  if (!item) return std::nullopt;
  if (retryInterrupted([&] { return ::flock(item.get(), operation); }) != 0) return std::nullopt;
  return ItemLock{std::move(item)};
}

ItemLock::ItemLock(FileDescriptor locked) : locked_{std::move(locked)} {
  const auto item = itemOf(locked_.get());
  const MutexLock lock{lockedByUs().mutex};
  if (item) lockedByUs().items.insert(*item);
}

// Unlocks before closing: a child between its fork and its exec still has the descriptor.
ItemLock::~ItemLock() {
  if (!locked_) return;
  const auto item = itemOf(locked_.get());
  const MutexLock lock{lockedByUs().mutex};
  if (item) lockedByUs().items.erase(*item);
  (void)::flock(locked_.get(), LOCK_UN);
}

bool isLockedByUs(int descriptor) {
  const auto item = itemOf(descriptor);
  const MutexLock lock{lockedByUs().mutex};
  return item && lockedByUs().items.contains(*item);
}

}  // namespace installer
