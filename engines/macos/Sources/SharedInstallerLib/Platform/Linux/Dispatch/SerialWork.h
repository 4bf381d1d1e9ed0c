// One block at a time, in the order of posting, on the workers of a pool.
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "Base/Mutex.h"

namespace installer {

class WorkerPool;

// Owned by its queue and by the block that serves it, so that queued blocks run after the queue is destroyed.
class SerialWork : public std::enable_shared_from_this<SerialWork> {
 public:
  explicit SerialWork(WorkerPool& workers) : workers_{workers} {}
  void post(std::function<void()> work);

 private:
  WorkerPool& workers_;
  Mutex mutex_;
  std::deque<std::function<void()>> queue_ GUARDED_BY(mutex_);
  bool served_ GUARDED_BY(mutex_) = false;  // a worker serves the queue or is about to

  void serve();
  std::function<void()> next();  // empty when there is none; then the worker stops serving
};

}  // namespace installer
