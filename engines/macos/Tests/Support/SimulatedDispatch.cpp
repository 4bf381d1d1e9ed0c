#include "Support/SimulatedDispatch.h"

#include <deque>
#include <gtest/gtest.h>
#include <iomanip>
#include <sstream>
#include <utility>

#include "Support/Scheduler.h"

namespace installer::test {

namespace {

TimePoint parseTime(std::string_view iso8601) {
  std::tm fields{};
  std::istringstream text{std::string{iso8601}};
  text >> std::get_time(&fields, "%Y-%m-%dT%H:%M:%SZ");
  if (text.fail()) ADD_FAILURE() << "not a time: " << iso8601;
  return TimePoint{std::chrono::seconds{timegm(&fields)}};
}

class SimulatedEvent : public SimulatedDispatch::Event {
 public:
  SimulatedEvent(Scheduler& scheduler, std::string description)
      : scheduler_{scheduler}, description_{std::move(description)} {}

  void happen() override {
    if (std::exchange(happened_, true) || waiting_ == nullptr) return;
    scheduler_.wake(*std::exchange(waiting_, nullptr));
  }

  void wait() override {
    if (happened_) return;
    scheduler_.block(description_, [this](SimulatedThread& self) { waiting_ = &self; });
  }

  bool waitFor(Duration limit) override {
    if (happened_) return true;
    const auto alarm = scheduler_.postTimed(toNanoseconds(limit), [this] {
      if (waiting_ != nullptr) scheduler_.wake(*std::exchange(waiting_, nullptr));
    });
    scheduler_.block(description_, [this](SimulatedThread& self) { waiting_ = &self; });
    scheduler_.cancelTimed(alarm);
    return happened_;
  }

 private:
  Scheduler& scheduler_;
  std::string description_;
  SimulatedThread* waiting_ = nullptr;
  bool happened_ = false;
};

class SimulatedSemaphore : public Semaphore {
 public:
  SimulatedSemaphore(std::shared_ptr<Scheduler> scheduler, int count)
      : scheduler_{std::move(scheduler)}, count_{count} {}

  void signal() override {
    if (waiting_.empty()) {
      ++count_;
      return;
    }
    auto* const first = waiting_.front();
    waiting_.pop_front();
    first->happen();
  }

  void wait() override {
    if (take()) return;
    SimulatedEvent event{*scheduler_, "a semaphore"};
    waiting_.push_back(&event);
    const Withdrawal withdrawal{waiting_, event};
    event.wait();
  }

  bool waitFor(Duration limit) override {
    if (take()) return true;
    SimulatedEvent event{*scheduler_, "a semaphore with a deadline"};
    waiting_.push_back(&event);
    const Withdrawal withdrawal{waiting_, event};
    return event.waitFor(limit);
  }

 private:
  // Removes a waiter at every end of its wait.
  struct Withdrawal {
    Withdrawal(std::deque<SimulatedEvent*>& list, SimulatedEvent& one) : waiting{list}, event{one} {}
    Withdrawal(const Withdrawal&) = delete;
    Withdrawal& operator=(const Withdrawal&) = delete;
    ~Withdrawal() { std::erase(waiting, &event); }
    std::deque<SimulatedEvent*>& waiting;
    SimulatedEvent& event;
  };

  std::shared_ptr<Scheduler> scheduler_;
  int count_;
  std::deque<SimulatedEvent*> waiting_;

  bool take() {
    if (count_ <= 0) return false;
    --count_;
    return true;
  }
};

class SimulatedQueue : public SerialQueue {
 public:
  SimulatedQueue(std::shared_ptr<Scheduler> scheduler, std::string label) : scheduler_{std::move(scheduler)} {
    blocks_->label = std::move(label);
  }
  void async(Work work) override { scheduler_->postSerial(blocks_, std::move(work)); }

 private:
  std::shared_ptr<Scheduler> scheduler_;
  std::shared_ptr<SerialBlocks> blocks_ = std::make_shared<SerialBlocks>();
};

// Outlives the timer while its handler runs.
struct TimerState : std::enable_shared_from_this<TimerState> {
  TimerState(std::shared_ptr<Scheduler> itsScheduler, Nanoseconds itsInterval, Work itsHandler)
      : scheduler{std::move(itsScheduler)}, interval{itsInterval}, handler{std::move(itsHandler)} {}

  std::shared_ptr<Scheduler> scheduler;
  Nanoseconds interval;
  Work handler;
  Nanoseconds due = 0;
  std::uint64_t alarm = 0;
  bool cancelled = false;

  void arm() {
    const auto delay = due > scheduler->now() ? due - scheduler->now() : 0;
    alarm = scheduler->postTimed(
        delay, [self = shared_from_this()] { self->scheduler->postGlobal([self] { self->fire(); }); });
  }

  void fire() {
    if (cancelled) return;
    handler();
    due += interval;
    if (!cancelled) arm();
  }
};

class SimulatedTimer : public Timer {
 public:
  explicit SimulatedTimer(std::shared_ptr<TimerState> state) : state_{std::move(state)} {}
  SimulatedTimer(const SimulatedTimer&) = delete;
  SimulatedTimer& operator=(const SimulatedTimer&) = delete;
  ~SimulatedTimer() override { stop(); }
  void cancel() override { stop(); }

 private:
  std::shared_ptr<TimerState> state_;

  void stop() {
    state_->cancelled = true;
    state_->scheduler->cancelTimed(state_->alarm);
  }
};

}  // namespace

struct SimulatedDispatch::Core {
  explicit Core(std::uint64_t seed) : scheduler{std::make_shared<Scheduler>(seed)} {}
  std::shared_ptr<Scheduler> scheduler;
  TimePoint start = parseTime("2026-03-01T12:00:00Z");
};

SimulatedDispatch::SimulatedDispatch(std::uint64_t seed) : core_{std::make_shared<Core>(seed)} {
}

SimulatedDispatch::~SimulatedDispatch() {
  shutDown();
}

void SimulatedDispatch::shutDown() {
  core_->scheduler->shutDown();
}

bool SimulatedDispatch::isMainThread() {
  return core_->scheduler->onMainThread();
}

void SimulatedDispatch::asyncMain(Work work) {
  core_->scheduler->postMain(std::move(work));
}

void SimulatedDispatch::asyncMainAfter(Duration delay, Work work) {
  schedule(delay, [this, block = std::move(work)] { core_->scheduler->postMain(block); });
}

void SimulatedDispatch::syncMain(const Work& work) {
  if (isMainThread()) {
    ADD_FAILURE() << "syncMain on the main thread waits for itself";
    return;
  }
  const auto done = makeEvent("the main queue");
  asyncMain([&work, done] {
    work();
    done->happen();
  });
  done->wait();
}

void SimulatedDispatch::runMainLoop(Duration slice) {
  if (!isMainThread()) {
    ADD_FAILURE() << "the main run loop was turned on another thread";
    return;
  }
  const auto limit = toNanoseconds(slice);
  core_->scheduler->serveMain(&limit, nullptr);
}

void SimulatedDispatch::asyncGlobal(QualityOfService /*quality*/, Work work) {
  core_->scheduler->postGlobal(std::move(work));
}

std::shared_ptr<SerialQueue> SimulatedDispatch::makeSerialQueue(const std::string& label,
                                                                QualityOfService /*quality*/) {
  return std::make_shared<SimulatedQueue>(core_->scheduler, label);
}

std::shared_ptr<Semaphore> SimulatedDispatch::makeSemaphore(int count) {
  return std::make_shared<SimulatedSemaphore>(core_->scheduler, count);
}

std::unique_ptr<Timer> SimulatedDispatch::startTimer(Duration interval, Work handler) {
  auto state = std::make_shared<TimerState>(core_->scheduler, toNanoseconds(interval), std::move(handler));
  state->due = core_->scheduler->now();
  state->arm();
  return std::make_unique<SimulatedTimer>(state);
}

void SimulatedDispatch::detachThread(Work work) {
  core_->scheduler->postGlobal(std::move(work));
}

TimePoint SimulatedDispatch::now() {
  return core_->start + std::chrono::nanoseconds{core_->scheduler->now()};
}

void SimulatedDispatch::sleep(Duration duration) {
  makeEvent("the end of a sleep")->waitFor(duration);
}

void SimulatedDispatch::runUntil(const std::function<bool()>& done, Duration limit) {
  const auto nanoseconds = toNanoseconds(limit);
  if (done() || core_->scheduler->serveMain(&nanoseconds, done)) return;
  ADD_FAILURE() << "what was waited for didn't happen within " << limit.count() << " virtual seconds";
}

void SimulatedDispatch::runOnWorker(const Work& work) {
  bool ended = false;
  asyncGlobal(QualityOfService::userInitiated, [&] {
    work();
    ended = true;
  });
  core_->scheduler->serveMain(nullptr, [&ended] { return ended; });
}

Duration SimulatedDispatch::elapsed() const {
  return std::chrono::nanoseconds{core_->scheduler->now()};
}

void SimulatedDispatch::setTimeLimit(Duration limit) {
  core_->scheduler->setTimeLimit(toNanoseconds(limit));
}

void SimulatedDispatch::setNow(std::string_view iso8601) {
  core_->start = parseTime(iso8601) - std::chrono::nanoseconds{core_->scheduler->now()};
}

std::shared_ptr<SimulatedDispatch::Event> SimulatedDispatch::makeEvent(std::string description) {
  return std::make_shared<SimulatedEvent>(*core_->scheduler, std::move(description));
}

void SimulatedDispatch::schedule(Duration delay, Work work) {
  core_->scheduler->postTimed(toNanoseconds(delay), std::move(work));
}

}  // namespace installer::test
