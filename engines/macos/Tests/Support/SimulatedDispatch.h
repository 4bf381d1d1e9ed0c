// Queues, timers and waits in virtual time, in a deterministic order.
//
// Every simulated thread has its own stack, but only one of them runs at a time: the next one is chosen when
// the running one waits or ends. Nothing is preempted, so fakes and tests need no locks. Time advances only
// when nothing is left to run, and then at once to the next timer, delayed block or deadline.
//
// The thread that constructs it is the main thread. Main-queue blocks run only while that thread is inside
// `runMainLoop` (or one of the verbs below, which call it), never while it is blocked elsewhere.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Platform/Dispatch.h"

namespace installer::test {

// Thrown on the main thread, after a test failure was recorded, when its wait is endless.
class SimulationStuck : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class SimulatedDispatch : public Dispatch {
 public:
  // Seed 0 runs in the order of readiness; another seed gives another, equally deterministic order.
  explicit SimulatedDispatch(std::uint64_t seed = 0);
  SimulatedDispatch(const SimulatedDispatch&) = delete;
  SimulatedDispatch& operator=(const SimulatedDispatch&) = delete;
  ~SimulatedDispatch() override;

  bool isMainThread() override;
  void asyncMain(Work work) override;
  void asyncMainAfter(Duration delay, Work work) override;
  void syncMain(const Work& work) override;
  void runMainLoop(Duration slice) override;
  void asyncGlobal(QualityOfService quality, Work work) override;
  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label, QualityOfService quality) override;
  std::shared_ptr<Semaphore> makeSemaphore(int count) override;
  std::unique_ptr<Timer> startTimer(Duration interval, Work handler) override;
  void detachThread(Work work) override;
  TimePoint now() override;
  void sleep(Duration duration) override;

  // Verbs for tests, on the main thread.

  // Runs the main run loop for `duration` of virtual time, with everything that is due in that time.
  void advance(Duration duration) { runMainLoop(duration); }
  // Runs everything that can run now, also on the main queue. Time doesn't advance.
  void runUntilIdle() { runMainLoop(Duration{0}); }
  // Runs the main run loop until `done` is true. Fails the test when `limit` of virtual time passes first.
  void runUntil(const std::function<bool()>& done, Duration limit = std::chrono::hours{1});
  // Runs `work` on a worker thread while the main run loop runs, and returns when it has ended.
  void runOnWorker(const Work& work);

  // Virtual time since the construction.
  Duration elapsed() const;
  // A test in which more virtual time passes (by default two days) counts as hanging and fails.
  void setTimeLimit(Duration limit);
  // Sets the clock without an advance of time, e.g. to "2026-03-01T12:00:00Z", which is also the start.
  void setNow(std::string_view iso8601);

  // For other fakes.

  // An event that happens once. A simulated thread waits for it, another makes it happen.
  class Event;
  std::shared_ptr<Event> makeEvent(std::string description);
  // Runs `work` after `delay` outside all queues, independent of the threads. `work` must not wait.
  void schedule(Duration delay, Work work);

  // Ends every simulated thread that is still blocked and drops the queued blocks. The machine's destructor
  // calls it first; nothing runs afterwards.
  void shutDown();

 private:
  struct Core;
  std::shared_ptr<Core> core_;
};

class SimulatedDispatch::Event {
 public:
  virtual ~Event() = default;
  virtual void happen() = 0;
  virtual void wait() = 0;                   // returns at once when it has happened
  virtual bool waitFor(Duration limit) = 0;  // false when `limit` passed first
};

}  // namespace installer::test
