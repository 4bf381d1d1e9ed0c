// Threads for blocks that may wait for each other: every block gets a thread at once.
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
  // Waits until all posted blocks have run, including those posted meanwhile, and joins the threads.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Any thread. Runs at once: on an idle worker if there is one, else on a new one, which joins the pool.
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
