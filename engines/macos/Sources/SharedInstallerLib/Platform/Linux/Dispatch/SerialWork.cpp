#include "Platform/Linux/Dispatch/SerialWork.h"

#include <utility>

#include "Platform/Linux/Dispatch/WorkerPool.h"

namespace installer {

void SerialWork::post(std::function<void()> work) {
  {
    const MutexLock lock{mutex_};
    queue_.push_back(std::move(work));
    if (std::exchange(served_, true)) return;
  }
  workers_.post([self = shared_from_this()] { self->serve(); });
}

void SerialWork::serve() {
  while (const auto work = next()) work();
}

std::function<void()> SerialWork::next() {
  const MutexLock lock{mutex_};
  if (queue_.empty()) {
    served_ = false;
    return {};
  }
  auto work = std::move(queue_.front());
  queue_.pop_front();
  return work;
}

}  // namespace installer
