#include "Platform/Machine.h"

#include <atomic>
#include <cassert>

#include "Base/ProcessWide.h"

namespace installer {

namespace {

std::atomic<Machine*> current{nullptr};

}  // namespace

Machine& machine() {
  Machine* const installed = current.load(std::memory_order_acquire);
  assert(installed != nullptr);
  return *installed;
}

void installMachine(Machine* installed) {
  forgetProcessWide();
  current.store(installed, std::memory_order_release);
}

}  // namespace installer
