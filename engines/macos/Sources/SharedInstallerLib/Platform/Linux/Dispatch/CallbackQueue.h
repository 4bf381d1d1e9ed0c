// The serial queue for the callbacks of one session. Any thread may post.
#pragma once

#include <memory>

#include "Platform/Dispatch.h"

namespace installer {

// Runs its blocks one at a time, in order, on its own thread, which starts with the first block. The
// destructor waits until the queued blocks have run, unless it is called in one of them; then it doesn't
// wait.
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
  std::shared_ptr<State> state_;  // shared with the thread

  static void serve(State& state);
};

}  // namespace installer
