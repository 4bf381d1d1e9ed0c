// Threads for blocks that may wait for each other: a block never waits for a thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

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
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> queue_;
  std::vector<std::thread> workers_;
  std::size_t idle_ = 0;  // workers that wait for a block
  bool ending_ = false;

  void serve();
};

}  // namespace installer
