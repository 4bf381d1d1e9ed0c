// The scheduler of the simulated dispatch: it selects the next thread and advances the time.
//
// Exactly one simulated thread has the turn, and only that thread uses the state below. The mutex only guards
// the transfer of the turn.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Base/Mutex.h"
#include "Platform/Dispatch.h"

namespace installer::test {

using Nanoseconds = std::int64_t;  // of virtual time since the start

Nanoseconds toNanoseconds(Duration duration);

// Unwinds the stack of a simulated thread that is still blocked when its test ends.
struct ThreadAbandoned {};

struct SimulatedThread {
  std::string name;
  std::string waitingFor;  // for the message about an endless wait
  Work job;                // runs when the thread gets the turn
  bool turn = false;
  bool idle = false;   // a worker without a block
  bool leave = false;  // ends at its next turn
  Condition turnCame;
  std::thread handle;  // not of the main thread
};

// The blocks of one serial queue.
struct SerialBlocks {
  std::string label;
  std::deque<std::pair<std::uint64_t, Work>> blocks;  // with their order numbers
  bool busy = false;
};

class Scheduler {
 public:
  explicit Scheduler(std::uint64_t seed);
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  ~Scheduler();

  bool onMainThread() const { return std::this_thread::get_id() == mainIdentifier_; }
  bool isShutDown() const { return shutDown_; }
  Nanoseconds now() const { return now_; }
  void setTimeLimit(Nanoseconds limit) { timeLimit_ = limit; }

  void postMain(Work work);
  void postGlobal(Work work);
  void postSerial(const std::shared_ptr<SerialBlocks>& queue, Work work);

  // Calls `due` after `delay`, in the scheduler. The returned number cancels it.
  std::uint64_t postTimed(Nanoseconds delay, Work due);
  void cancelTimed(std::uint64_t number);

  // Blocks the running thread until `wake` is called with it. Calls `arm` with the thread first.
  void block(const std::string& description, const std::function<void(SimulatedThread&)>& arm);
  void wake(SimulatedThread& thread);

  // Serves the main queue on the main thread until `until` (may be empty) is true, or until `limit` has
  // passed and nothing is left to run at that time. No time limit when `limit` is null. Returns whether
  // `until` was true.
  bool serveMain(const Nanoseconds* limit, const std::function<bool()>& until);

  void shutDown();

 private:
  struct Choice;
  using Ready = std::pair<std::uint64_t, SimulatedThread*>;

  std::mt19937_64 random_;
  bool seeded_;
  std::thread::id mainIdentifier_;
  Mutex handOver_;  // guards every thread's `turn`
  SimulatedThread main_;
  std::list<SimulatedThread> workers_;

  Nanoseconds now_ = 0;
  Nanoseconds timeLimit_;
  std::uint64_t nextNumber_ = 1;
  std::uint64_t steps_ = 0;  // since the last advance of the time
  bool shutDown_ = false;
  std::string stuck_;  // why the main thread must fail

  std::deque<std::pair<std::uint64_t, Work>> mainBlocks_;
  std::deque<std::pair<std::uint64_t, Work>> globalBlocks_;
  std::vector<std::shared_ptr<SerialBlocks>> serialQueues_;  // those with blocks
  std::vector<Ready> ready_;                                 // threads whose wait has ended
  std::map<std::pair<Nanoseconds, std::uint64_t>, Work> timed_;
  std::map<std::uint64_t, Nanoseconds> timedDue_;

  bool mainServes_ = false;  // the main thread is inside its run loop
  const Nanoseconds* mainLimit_ = nullptr;
  std::function<bool()> mainUntil_;

  SimulatedThread& current();
  void passTurn(SimulatedThread& self);
  bool runDue();
  std::vector<Choice> choices();
  Choice* choose(std::vector<Choice>& all);
  bool moveTime();
  bool mainMayReturn();
  SimulatedThread& workerFor(Work job);
  void handTurn(SimulatedThread& self, SimulatedThread& target);
  void awaitTurn(SimulatedThread& self);
  void workerMain(SimulatedThread& self);
  void giveUp(const std::string& why);
  std::string blockedThreads() const;
  void throwIfStuck();
};

}  // namespace installer::test
