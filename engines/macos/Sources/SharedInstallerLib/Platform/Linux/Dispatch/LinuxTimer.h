// Repeating timers whose handlers run on the workers.
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include "Base/Mutex.h"
#include "Platform/Dispatch.h"

namespace installer {

class WorkerPool;

// The thread of all timers; it starts with the first timer and ends with the object.
class TimerThread {
 public:
  TimerThread() = default;
  ~TimerThread() { stop(); }
  TimerThread(const TimerThread&) = delete;
  TimerThread& operator=(const TimerThread&) = delete;

  // The context; the first call starts the thread that serves it. Any thread.
  asio::io_context& context();

  // No timer fires after this. Not to be called from a timer's handler.
  void stop();

 private:
  asio::io_context context_;
  Mutex mutex_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> staysOpen_ GUARDED_BY(mutex_);
  std::thread thread_ GUARDED_BY(mutex_);
};

// A firing that is due while the handler runs is skipped, so firings never queue up.
class LinuxTimer : public Timer {
 public:
  LinuxTimer(TimerThread& thread, WorkerPool& workers, std::chrono::steady_clock::duration interval,
             Work handler);
  ~LinuxTimer() override;
  void cancel() override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace installer
