#include "Platform/Linux/Dispatch/WorkerPool.h"

#include <utility>

namespace installer {

WorkerPool::~WorkerPool() {
  {
    const MutexLock lock{mutex_};
    ending_ = true;
  }
  changed_.notifyAll();
  for (;;) {
    std::vector<std::thread> workers;
    {
      const MutexLock lock{mutex_};
      workers.swap(workers_);
    }
    if (workers.empty()) return;
    for (std::thread& worker : workers) worker.join();
  }
}

void WorkerPool::post(std::function<void()> work) {
  {
    const MutexLock lock{mutex_};
    queue_.push_back(std::move(work));
    if (queue_.size() > idle_) {
      ++idle_;  // the new worker counts as idle at once, so that the next block doesn't rely on it
      workers_.emplace_back([this] { serve(); });
    }
  }
  changed_.notifyOne();
}

void WorkerPool::serve() {
  MutexLock lock{mutex_};
  for (;;) {
    while (!ending_ && queue_.empty()) changed_.wait(mutex_);
    if (queue_.empty()) return;
    auto work = std::move(queue_.front());
    queue_.pop_front();
    --idle_;
    lock.unlock();
    work();
    work = nullptr;  // its captures are destroyed before the worker counts as idle
    lock.lock();
    ++idle_;
  }
}

}  // namespace installer
