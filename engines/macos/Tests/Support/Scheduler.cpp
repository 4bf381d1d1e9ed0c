#include "Support/Scheduler.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <gtest/gtest.h>

#include "Support/SimulatedDispatch.h"

namespace installer::test {

namespace {

constexpr Nanoseconds kTwoDays = 2LL * 24 * 3600 * 1'000'000'000;
constexpr std::uint64_t kStepsWithoutTime = 300'000;

thread_local SimulatedThread* thisThread = nullptr;

void runGuarded(const Work& job) {
  try {
    job();
  } catch (const ThreadAbandoned&) {  // the test is over
  } catch (const std::exception& error) {
    ADD_FAILURE() << "an exception left a block: " << error.what();
  }
}

}  // namespace

Nanoseconds toNanoseconds(Duration duration) {
  constexpr double kLongest = 9e9;  // seconds; fits in 64 bits of nanoseconds
  return std::llround(std::clamp(duration.count(), 0.0, kLongest) * 1e9);
}

// A candidate to run next.
struct Scheduler::Choice {
  enum class Kind { readyThread, mainBlock, globalBlock, serialBlock };
  std::uint64_t number;
  Kind kind;
  std::size_t index;
};

Scheduler::Scheduler(std::uint64_t seed)
    : random_{seed}, seeded_{seed != 0}, mainIdentifier_{std::this_thread::get_id()}, timeLimit_{kTwoDays} {
  main_.name = "main";
  main_.turn = true;
}

Scheduler::~Scheduler() {
  shutDown();
}

SimulatedThread& Scheduler::current() {
  return onMainThread() ? main_ : *thisThread;
}

void Scheduler::postMain(Work work) {
  if (!shutDown_) mainBlocks_.emplace_back(nextNumber_++, std::move(work));
}

void Scheduler::postGlobal(Work work) {
  if (!shutDown_) globalBlocks_.emplace_back(nextNumber_++, std::move(work));
}

void Scheduler::postSerial(const std::shared_ptr<SerialBlocks>& queue, Work work) {
  if (shutDown_) return;
  if (queue->blocks.empty()) serialQueues_.push_back(queue);
  queue->blocks.emplace_back(nextNumber_++, std::move(work));
}

std::uint64_t Scheduler::postTimed(Nanoseconds delay, Work due) {
  const auto number = nextNumber_++;
  if (shutDown_) return number;
  timedDue_[number] = now_ + delay;
  timed_[{now_ + delay, number}] = std::move(due);
  return number;
}

void Scheduler::cancelTimed(std::uint64_t number) {
  const auto found = timedDue_.find(number);
  if (found == timedDue_.end()) return;
  timed_.erase({found->second, number});
  timedDue_.erase(found);
}

void Scheduler::wake(SimulatedThread& thread) {
  ready_.emplace_back(nextNumber_++, &thread);
}

void Scheduler::block(const std::string& description, const std::function<void(SimulatedThread&)>& arm) {
  if (shutDown_) {
    if (onMainThread() || std::uncaught_exceptions() > 0) return;
    throw ThreadAbandoned{};
  }
  auto& self = current();
  self.waitingFor = description;
  arm(self);
  passTurn(self);
  self.waitingFor.clear();
  if (&self == &main_) throwIfStuck();
  if (shutDown_ && &self != &main_) throw ThreadAbandoned{};
}

bool Scheduler::serveMain(const Nanoseconds* limit, const std::function<bool()>& until) {
  const Nanoseconds end = limit == nullptr ? 0 : now_ + *limit;
  // An empty due entry keeps time from passing the end of the slice.
  const auto alarm = limit == nullptr ? 0 : postTimed(*limit, [] {});
  while (!shutDown_) {
    mainServes_ = true;
    mainLimit_ = limit == nullptr ? nullptr : &end;
    mainUntil_ = until;
    main_.waitingFor = "its run loop";
    passTurn(main_);
    main_.waitingFor.clear();
    mainServes_ = false;
    mainUntil_ = nullptr;
    throwIfStuck();
    const auto job = std::exchange(main_.job, nullptr);
    if (!job) break;
    job();
  }
  cancelTimed(alarm);
  return until && until();
}

void Scheduler::throwIfStuck() {
  if (stuck_.empty()) return;
  const auto why = std::exchange(stuck_, {});
  ADD_FAILURE() << why;
  throw SimulationStuck{why};
}

// Chooses the next thread and gives it the turn; returns when `self` has the turn again.
void Scheduler::passTurn(SimulatedThread& self) {
  for (;;) {
    if (runDue()) continue;
    if (mainServes_ && mainUntil_ && mainUntil_()) return handTurn(self, main_);
    auto all = choices();
    if (all.empty()) {
      if (mainMayReturn()) return handTurn(self, main_);
      if (moveTime()) continue;
      return handTurn(self, main_);
    }
    if (++steps_ > kStepsWithoutTime) {
      giveUp("The simulation goes round in circles: time has stopped moving.");
      return handTurn(self, main_);
    }
    const auto choice = *choose(all);
    const auto at = static_cast<std::ptrdiff_t>(choice.index);
    switch (choice.kind) {
      case Choice::Kind::readyThread: {
        auto* const thread = ready_[choice.index].second;
        ready_.erase(ready_.begin() + at);
        return handTurn(self, *thread);
      }
      case Choice::Kind::mainBlock: {
        main_.job = std::move(mainBlocks_.front().second);
        mainBlocks_.pop_front();
        mainServes_ = false;
        return handTurn(self, main_);
      }
      case Choice::Kind::globalBlock: {
        auto work = std::move(globalBlocks_[choice.index].second);
        globalBlocks_.erase(globalBlocks_.begin() + at);
        return handTurn(self, workerFor(std::move(work)));
      }
      case Choice::Kind::serialBlock: {
        const auto queue = serialQueues_[choice.index];
        auto work = std::move(queue->blocks.front().second);
        queue->blocks.pop_front();
        if (queue->blocks.empty()) serialQueues_.erase(serialQueues_.begin() + at);
        queue->busy = true;
        return handTurn(self, workerFor([queue, block = std::move(work)]() mutable {
                          runGuarded(block);
                          block = nullptr;
                          queue->busy = false;
                        }));
      }
    }
  }
}

// Calls the earliest due entry, if there is one.
bool Scheduler::runDue() {
  if (timed_.empty() || timed_.begin()->first.first > now_) return false;
  auto entry = timed_.extract(timed_.begin());
  timedDue_.erase(entry.key().second);
  entry.mapped()();
  return true;
}

std::vector<Scheduler::Choice> Scheduler::choices() {
  std::vector<Choice> all;
  for (std::size_t i = 0; i < ready_.size(); ++i) {
    all.push_back({ready_[i].first, Choice::Kind::readyThread, i});
  }
  if (mainServes_ && !mainBlocks_.empty()) {
    all.push_back({mainBlocks_.front().first, Choice::Kind::mainBlock, 0});
  }
  for (std::size_t i = 0; i < globalBlocks_.size(); ++i) {
    all.push_back({globalBlocks_[i].first, Choice::Kind::globalBlock, i});
  }
  for (std::size_t i = 0; i < serialQueues_.size(); ++i) {
    if (serialQueues_[i]->busy) continue;
    all.push_back({serialQueues_[i]->blocks.front().first, Choice::Kind::serialBlock, i});
  }
  return all;
}

Scheduler::Choice* Scheduler::choose(std::vector<Choice>& all) {
  if (seeded_) return &all[random_() % all.size()];
  return &*std::min_element(all.begin(), all.end(),
                            [](const Choice& a, const Choice& b) { return a.number < b.number; });
}

// The run loop's slice ends when its time is over and nothing is left to run at that time.
bool Scheduler::mainMayReturn() {
  return mainServes_ && mainLimit_ != nullptr && now_ >= *mainLimit_;
}

bool Scheduler::moveTime() {
  if (timed_.empty()) {
    giveUp("A wait can never end: nothing is left to run and nothing is due." + blockedThreads());
    return false;
  }
  now_ = timed_.begin()->first.first;
  steps_ = 0;
  if (now_ <= timeLimit_) return true;
  giveUp("Virtual time has passed its limit." + blockedThreads());
  return false;
}

void Scheduler::giveUp(const std::string& why) {
  stuck_ = why;
}

std::string Scheduler::blockedThreads() const {
  std::string text = "\n  " + main_.name + " waits for " + main_.waitingFor;
  for (const auto& worker : workers_) {
    if (!worker.idle) text.append("\n  ").append(worker.name).append(" waits for ").append(worker.waitingFor);
  }
  return text;
}

SimulatedThread& Scheduler::workerFor(Work job) {
  auto found = std::find_if(workers_.begin(), workers_.end(), [](const auto& one) { return one.idle; });
  if (found == workers_.end()) {
    workers_.emplace_back();
    found = std::prev(workers_.end());
    found->name = "worker " + std::to_string(workers_.size());
    found->handle = std::thread{[this, worker = &*found] { workerMain(*worker); }};
  }
  found->idle = false;
  found->job = std::move(job);
  return *found;
}

void Scheduler::handTurn(SimulatedThread& self, SimulatedThread& target) {
  if (&self == &target) return;
  {
    const MutexLock lock{handOver_};
    self.turn = false;
    target.turn = true;
  }
  target.turnCame.notifyOne();
  awaitTurn(self);
}

void Scheduler::awaitTurn(SimulatedThread& self) {
  MutexLock lock{handOver_};
  while (!self.turn) self.turnCame.wait(handOver_);
}

void Scheduler::workerMain(SimulatedThread& self) {
  thisThread = &self;
  awaitTurn(self);
  while (!self.leave) {
    runGuarded(self.job);
    self.job = nullptr;
    self.idle = true;
    if (shutDown_) break;
    passTurn(self);
  }
  const MutexLock lock{handOver_};
  self.turn = false;
  main_.turn = true;
  main_.turnCame.notifyOne();
}

void Scheduler::shutDown() {
  if (shutDown_) return;
  shutDown_ = true;
  for (auto& worker : workers_) {
    worker.leave = worker.idle;
    handTurn(main_, worker);
    worker.handle.join();
  }
  workers_.clear();
  ready_.clear();
  // Each queue is emptied by an exchange: a block may own an object whose destructor reads these queues.
  const auto timed = std::exchange(timed_, {});
  const auto mainBlocks = std::exchange(mainBlocks_, {});
  const auto globalBlocks = std::exchange(globalBlocks_, {});
  for (const auto& queue : std::exchange(serialQueues_, {})) {
    const auto blocks = std::exchange(queue->blocks, {});
  }
}

}  // namespace installer::test
