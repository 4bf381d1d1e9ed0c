// Advisory locks of the kernel on files and folders, by flock(2).
#pragma once

#include <optional>
#include <sys/stat.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/Path.h"

namespace installer {

// A lock, released at destruction, and by the kernel when the process ends. Any thread.
class ItemLock {
 public:
  // Locks the item at `path` (links are followed) against every other lock of it. Absent with errno set:
  // EWOULDBLOCK while another holder has it.
  static std::optional<ItemLock> tryTake(const Path& path);
  // Waits for the other holder.
  static std::optional<ItemLock> take(const Path& path);

  ItemLock(ItemLock&&) noexcept = default;
  ItemLock& operator=(ItemLock&&) = delete;
  ItemLock(const ItemLock&) = delete;
  ItemLock& operator=(const ItemLock&) = delete;
  ~ItemLock();

 private:
  explicit ItemLock(FileDescriptor locked);
  static std::optional<ItemLock> take(const Path& path, int operation);

  FileDescriptor locked_;
};

// True when this process holds the lock of the open item. Then no other process that uses these locks works
// in the item.
bool isLockedByUs(int descriptor);

}  // namespace installer
