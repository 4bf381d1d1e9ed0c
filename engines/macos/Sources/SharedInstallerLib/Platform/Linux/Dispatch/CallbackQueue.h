// The serial queue on which one session delivers its callbacks. Any thread may post.
#pragma once

#include <memory>

#include "Platform/Dispatch.h"

namespace installer {

// Runs its blocks one at a time, in order, on a thread of its own that starts with the first block.
// Destruction lets the queued blocks run; it waits for them, unless it happens in one of them.
class CallbackQueue {
 public:
  CallbackQueue();
  ~CallbackQueue();
  CallbackQueue(const CallbackQueue&) = delete;
  CallbackQueue& operator=(const CallbackQueue&) = delete;

  void async(Work work);

  // Returns when every block that was posted before has run. Not to be called from a block.
  void drain();

 private:
  struct State;
  std::shared_ptr<State> state_;  // the thread holds it too

  static void serve(State& state);
};

}  // namespace installer
