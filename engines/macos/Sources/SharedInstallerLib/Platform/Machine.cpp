#include "Platform/Machine.h"

#include <atomic>
#include <cassert>
#include <mutex>
#include <utility>
#include <vector>

namespace installer {

namespace {

std::atomic<Machine*> current{nullptr};

struct Forgetters {
  std::mutex mutex;
  std::vector<std::function<void()>> entries;
};

// Never destroyed: a worker may make its first process-wide value while the process exits.
Forgetters& forgetters() {
  static auto* const instance = new Forgetters;
  return *instance;
}

void forgetAll() {
  auto& list = forgetters();
  std::vector<std::function<void()>> entries;
  {
    const std::lock_guard lock{list.mutex};
    entries = std::exchange(list.entries, {});
  }
  while (!entries.empty()) {
    entries.back()();
    entries.pop_back();
  }
}

}  // namespace

Machine& machine() {
  Machine* const installed = current.load(std::memory_order_acquire);
  assert(installed != nullptr);
  return *installed;
}

void installMachine(Machine* installed) {
  forgetAll();
  current.store(installed, std::memory_order_release);
}

void atMachineChange(std::function<void()> forget) {
  auto& list = forgetters();
  const std::lock_guard lock{list.mutex};
  list.entries.push_back(std::move(forget));
}

}  // namespace installer
