#include "Platform/Linux/Dispatch/LinuxDispatch.h"

#include <algorithm>
#include <asio.hpp>
#include <cassert>
#include <fcntl.h>
#include <thread>

#include "Base/Mutex.h"
#include "Base/POSIX/FileDescriptor.h"
#include "Platform/Linux/Dispatch/LinuxTimer.h"
#include "Platform/Linux/Dispatch/SerialWork.h"
#include "Platform/Linux/Dispatch/WorkerPool.h"

namespace installer {

namespace {

using Clock = std::chrono::steady_clock;

// Clamps the duration: a very long wait must not overflow the clock, and a negative one ends at once.
Clock::duration ticks(Duration duration) {
  constexpr Duration longest = std::chrono::hours{24 * 365};
  if (!(duration > Duration::zero())) return Clock::duration::zero();
  return std::chrono::duration_cast<Clock::duration>(std::min(duration, longest));
}

class LinuxSemaphore : public Semaphore {
 public:
  explicit LinuxSemaphore(int count) : count_{count} {}

  void signal() override {
    // Notified under the lock: the waiter may destroy the semaphore as soon as the lock is released.
    const MutexLock lock{mutex_};
    ++count_;
    changed_.notifyOne();
  }

  void wait() override {
    MutexLock lock{mutex_};
    while (count_ == 0) changed_.wait(mutex_);
    --count_;
  }

  bool waitFor(Duration limit) override {
    const auto deadline = Clock::now() + ticks(limit);
    MutexLock lock{mutex_};
    while (count_ == 0) {
      if (!changed_.waitUntil(mutex_, deadline) && count_ == 0) return false;
    }
    --count_;
    return true;
  }

 private:
  Mutex mutex_;
  Condition changed_;
  int count_ GUARDED_BY(mutex_);
};

class LinuxSerialQueue : public SerialQueue {
 public:
  explicit LinuxSerialQueue(WorkerPool& workers) : work_{std::make_shared<SerialWork>(workers)} {}
  void async(Work work) override { work_->post(std::move(work)); }

 private:
  std::shared_ptr<SerialWork> work_;
};

}  // namespace

struct LinuxDispatch::Contexts {
  const std::thread::id mainThread = std::this_thread::get_id();
  asio::io_context main;
  asio::executor_work_guard<asio::io_context::executor_type> mainStaysOpen{main.get_executor()};
  TimerThread timers;
  WorkerPool workers;  // last, so that it is destroyed first: its blocks post to the others
};

LinuxDispatch::LinuxDispatch() : contexts_{std::make_unique<Contexts>()} {
}

LinuxDispatch::~LinuxDispatch() {
  contexts_->timers.stop();
}

bool LinuxDispatch::isMainThread() {
  return std::this_thread::get_id() == contexts_->mainThread;
}

void LinuxDispatch::asyncMain(Work work) {
  asio::post(contexts_->main, std::move(work));
}

void LinuxDispatch::asyncMainAfter(Duration delay, Work work) {
  const auto timer = std::make_shared<asio::steady_timer>(contexts_->main, ticks(delay));
  // The handler owns the timer; its destruction would cancel the wait.
  timer->async_wait([timer, work = std::move(work)](const std::error_code& error) {
    if (!error) work();
  });
}

void LinuxDispatch::asyncMainWhenReadable(int descriptor, Work work) {
  const auto own = retryInterrupted([&] { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0); });
  const auto stream = std::make_shared<asio::posix::stream_descriptor>(contexts_->main, own);
  stream->async_wait(asio::posix::stream_descriptor::wait_read,
                     [stream, work = std::move(work)](const std::error_code& error) {
                       if (!error) work();
                     });
}

void LinuxDispatch::syncMain(const Work& work) {
  assert(!isMainThread());
  LinuxSemaphore ended{0};
  asyncMain([&] {
    work();
    ended.signal();
  });
  ended.wait();
}

void LinuxDispatch::runMainLoop(Duration slice) {
  assert(isMainThread());
  if (slice > Duration::zero()) {
    contexts_->main.run_for(ticks(slice));
    return;
  }
  contexts_->main.poll();
}

void LinuxDispatch::asyncGlobal(QualityOfService, Work work) {
  contexts_->workers.post(std::move(work));
}

std::shared_ptr<SerialQueue> LinuxDispatch::makeSerialQueue(const std::string&, QualityOfService) {
  return std::make_shared<LinuxSerialQueue>(contexts_->workers);
}

std::shared_ptr<Semaphore> LinuxDispatch::makeSemaphore(int count) {
  return std::make_shared<LinuxSemaphore>(count);
}

std::unique_ptr<Timer> LinuxDispatch::startTimer(Duration interval, Work handler) {
  return std::make_unique<LinuxTimer>(contexts_->timers, contexts_->workers, ticks(interval),
                                      std::move(handler));
}

void LinuxDispatch::detachThread(Work work) {
  std::thread{std::move(work)}.detach();
}

TimePoint LinuxDispatch::now() {
  return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

void LinuxDispatch::sleep(Duration duration) {
  std::this_thread::sleep_for(ticks(duration));
}

}  // namespace installer
