// Queues, timers, waiting and the clock. The engine uses no other clock.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace installer {

using Work = std::function<void()>;
using Duration = std::chrono::duration<double>;  // seconds
using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

enum class QualityOfService { utility, standard, userInitiated };

// One block at a time, in the order of posting. Any thread may post; blocks that are queued when the last
// reference goes away still run.
class SerialQueue {
 public:
  virtual ~SerialQueue() = default;
  virtual void async(Work work) = 0;
};

// Counts signals. Any thread.
class Semaphore {
 public:
  virtual ~Semaphore() = default;
  virtual void signal() = 0;
  virtual void wait() = 0;
  // False when `limit` passed without a signal.
  virtual bool waitFor(Duration limit) = 0;
};

// Fires at once and then at every interval, on the global queue, until cancelled: never after `cancel` has
// returned on another thread, at most once more after a cancel in its own handler. Destruction cancels.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void cancel() = 0;
};

class Dispatch {
 public:
  virtual ~Dispatch() = default;

  // The thread that constructed the host is the main thread.
  virtual bool isMainThread() = 0;

  // Posts to the main queue, which is served by `runMainLoop` only.
  virtual void asyncMain(Work work) = 0;
  virtual void asyncMainAfter(Duration delay, Work work) = 0;
  // Posts to the main queue and waits for the end of `work`. Not to be called on the main thread.
  virtual void syncMain(const Work& work) = 0;

  // Serves the main queue on the main thread for the whole of `slice`.
  virtual void runMainLoop(Duration slice) = 0;

  // Runs on a worker thread, at once if one is free; more workers are created when blocks wait.
  virtual void asyncGlobal(QualityOfService quality, Work work) = 0;

  virtual std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label,
                                                       QualityOfService quality) = 0;
  virtual std::shared_ptr<Semaphore> makeSemaphore(int count) = 0;
  virtual std::unique_ptr<Timer> startTimer(Duration interval, Work handler) = 0;

  // Runs on a new thread, which is never joined.
  virtual void detachThread(Work work) = 0;

  virtual TimePoint now() = 0;
  // Blocks the calling thread.
  virtual void sleep(Duration duration) = 0;
};

}  // namespace installer
