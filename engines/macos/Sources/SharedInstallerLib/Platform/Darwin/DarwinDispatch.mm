// `Dispatch` on Grand Central Dispatch, NSRunLoop and NSThread.
#import <Foundation/Foundation.h>
#include <algorithm>
#include <cassert>
#include <dispatch/dispatch.h>

#include "Base/Mutex.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

qos_class_t qosClass(QualityOfService quality) {
  switch (quality) {
    case QualityOfService::utility: return QOS_CLASS_UTILITY;
    case QualityOfService::userInitiated: return QOS_CLASS_USER_INITIATED;
    case QualityOfService::standard: return QOS_CLASS_DEFAULT;
  }
}

// Clamps the duration: a very long wait must not overflow the clock, and a negative one ends at once.
std::int64_t nanoseconds(Duration duration) {
  constexpr Duration longest = std::chrono::hours{24 * 365};
  if (!(duration > Duration::zero())) return 0;
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::min(duration, longest)).count();
}

dispatch_time_t fromNow(Duration delay) {
  return dispatch_time(DISPATCH_TIME_NOW, nanoseconds(delay));
}

// Runs `work` in an autorelease pool, so that its autoreleased objects are released when it ends.
dispatch_block_t pooled(Work work) {
  return ^{
    @autoreleasepool {
      work();
    }
  };
}

class DarwinSerialQueue final : public SerialQueue {
 public:
  DarwinSerialQueue(const std::string& label, QualityOfService quality)
      : queue_{dispatch_queue_create(label.c_str(), dispatch_queue_attr_make_with_qos_class(
                                                        DISPATCH_QUEUE_SERIAL, qosClass(quality), 0))} {}

  void async(Work work) override { dispatch_async(queue_, pooled(std::move(work))); }

 private:
  dispatch_queue_t queue_;
};

class DarwinSemaphore final : public Semaphore {
 public:
  // Created with 0 and then signalled: libdispatch traps when a semaphore is freed below its initial count.
  explicit DarwinSemaphore(int count) : semaphore_{dispatch_semaphore_create(0)} {
    for (int i = 0; i < count; ++i) dispatch_semaphore_signal(semaphore_);
  }

  void signal() override { dispatch_semaphore_signal(semaphore_); }
  void wait() override { dispatch_semaphore_wait(semaphore_, DISPATCH_TIME_FOREVER); }
  bool waitFor(Duration limit) override { return dispatch_semaphore_wait(semaphore_, fromNow(limit)) == 0; }

 private:
  dispatch_semaphore_t semaphore_;
};

// A zero interval would spin.
constexpr std::uint64_t kShortestPause = NSEC_PER_MSEC;

class DarwinTimer final : public Timer {
 public:
  DarwinTimer(Duration interval, Work handler)
      : source_{dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0,
                                       dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0))} {
    const auto pause =
        std::max<std::uint64_t>(static_cast<std::uint64_t>(nanoseconds(interval)), kShortestPause);
    auto state = state_;
    dispatch_source_set_timer(source_, DISPATCH_TIME_NOW, pause, 0);
    dispatch_source_set_event_handler(source_, ^{
      @autoreleasepool {
        const MutexLock lock{state->mutex};
        if (!state->cancelled) handler();
      }
    });
    dispatch_resume(source_);
  }
  ~DarwinTimer() override { cancel(); }
  DarwinTimer(const DarwinTimer&) = delete;
  DarwinTimer& operator=(const DarwinTimer&) = delete;

  // Waits for a handler that is running on another thread; from the handler itself the lock is already held.
  void cancel() override {
    dispatch_source_cancel(source_);
    const MutexLock lock{state_->mutex};
    state_->cancelled = true;
  }

 private:
  struct State {
    RecursiveMutex mutex;
    bool cancelled GUARDED_BY(mutex) = false;
  };

  dispatch_source_t source_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

class DarwinDispatch final : public Dispatch {
 public:
  bool isMainThread() override { return [NSThread isMainThread]; }

  void asyncMain(Work work) override { dispatch_async(dispatch_get_main_queue(), pooled(std::move(work))); }

  void asyncMainAfter(Duration delay, Work work) override {
    dispatch_after(fromNow(delay), dispatch_get_main_queue(), pooled(std::move(work)));
  }

  void syncMain(const Work& work) override {
    assert(!isMainThread());
    const Work* const borrowed = &work;
    dispatch_sync(dispatch_get_main_queue(), ^{
      @autoreleasepool {
        (*borrowed)();
      }
    });
  }

  void runMainLoop(Duration slice) override {
    assert(isMainThread());
    @autoreleasepool {
      [[NSRunLoop mainRunLoop] runUntilDate:[NSDate dateWithTimeIntervalSinceNow:slice.count()]];
    }
  }

  void asyncGlobal(QualityOfService quality, Work work) override {
    dispatch_async(dispatch_get_global_queue(qosClass(quality), 0), pooled(std::move(work)));
  }

  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label, QualityOfService quality) override {
    return std::make_shared<DarwinSerialQueue>(label, quality);
  }

  std::shared_ptr<Semaphore> makeSemaphore(int count) override {
    return std::make_shared<DarwinSemaphore>(count);
  }

  std::unique_ptr<Timer> startTimer(Duration interval, Work handler) override {
    return std::make_unique<DarwinTimer>(interval, std::move(handler));
  }

  void detachThread(Work work) override { [NSThread detachNewThreadWithBlock:pooled(std::move(work))]; }

  TimePoint now() override { return std::chrono::system_clock::now(); }
  void sleep(Duration duration) override {
    [NSThread
        sleepForTimeInterval:static_cast<double>(nanoseconds(duration)) / static_cast<double>(NSEC_PER_SEC)];
  }
};

}  // namespace

std::unique_ptr<Dispatch> makeDispatch() {
  return std::make_unique<DarwinDispatch>();
}

}  // namespace installer::darwin
