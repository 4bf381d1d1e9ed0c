#include "Base/ProcessWide.h"

#include <vector>

#include "Base/Mutex.h"

namespace installer {

namespace {

struct Forgetters {
  Mutex mutex;
  std::vector<std::function<void()>> entries GUARDED_BY(mutex);
};

// Never destroyed: a worker may create a process-wide value while the process exits.
Forgetters& forgetters() {
  static auto* const instance = new Forgetters;
  return *instance;
}

}  // namespace

void forgetProcessWide() {
  auto& list = forgetters();
  std::vector<std::function<void()>> entries;
  {
    const MutexLock lock{list.mutex};
    entries = std::exchange(list.entries, {});
  }
  while (!entries.empty()) {
    entries.back()();
    entries.pop_back();
  }
}

void atForgetting(std::function<void()> forget) {
  auto& list = forgetters();
  const MutexLock lock{list.mutex};
  list.entries.push_back(std::move(forget));
}

}  // namespace installer
