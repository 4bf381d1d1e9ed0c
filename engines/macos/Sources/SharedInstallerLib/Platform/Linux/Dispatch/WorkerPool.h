// Threads for blocks that may wait for each other: a block never waits for a thread.
#pragma once

#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "Base/Mutex.h"

namespace installer {

class WorkerPool {
 public:
  WorkerPool() = default;
  // Lets everything that was posted run to its end, blocks posted meanwhile included, and joins.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Any thread. Runs at once: on an idle worker if there is one, else on a new one, which stays.
  void post(std::function<void()> work);

 private:
  Mutex mutex_;
  Condition changed_;
  std::deque<std::function<void()>> queue_ GUARDED_BY(mutex_);
  std::vector<std::thread> workers_ GUARDED_BY(mutex_);
  std::size_t idle_ GUARDED_BY(mutex_) = 0;  // workers that wait for a block
  bool ending_ GUARDED_BY(mutex_) = false;

  void serve();
};

}  // namespace installer
