#include "Platform/Linux/Dispatch/WorkerPool.h"

#include <utility>

namespace installer {

WorkerPool::~WorkerPool() {
  {
    const std::lock_guard lock{mutex_};
    ending_ = true;
  }
  changed_.notify_all();
  for (;;) {
    std::vector<std::thread> workers;
    {
      const std::lock_guard lock{mutex_};
      workers.swap(workers_);
    }
    if (workers.empty()) return;
    for (std::thread& worker : workers) worker.join();
  }
}

void WorkerPool::post(std::function<void()> work) {
  {
    const std::lock_guard lock{mutex_};
    queue_.push_back(std::move(work));
    if (queue_.size() > idle_) {
      ++idle_;  // counts from now on, so that the next block doesn't rely on the same worker
      workers_.emplace_back([this] { serve(); });
    }
  }
  changed_.notify_one();
}

void WorkerPool::serve() {
  std::unique_lock lock{mutex_};
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !queue_.empty(); });
    if (queue_.empty()) return;
    auto work = std::move(queue_.front());
    queue_.pop_front();
    --idle_;
    lock.unlock();
    work();
    work = nullptr;  // what it holds goes before the worker counts as idle
    lock.lock();
    ++idle_;
  }
}

}  // namespace installer
