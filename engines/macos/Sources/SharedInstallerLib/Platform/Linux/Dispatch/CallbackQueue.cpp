#include "Platform/Linux/Dispatch/CallbackQueue.h"

#include <deque>
#include <future>
#include <thread>
#include <utility>

#include "Base/Mutex.h"

namespace installer {

struct CallbackQueue::State {
  Mutex mutex;
  Condition changed;
  std::deque<Work> blocks GUARDED_BY(mutex);
  bool isClosing GUARDED_BY(mutex) = false;
  std::thread thread GUARDED_BY(mutex);  // starts with the first block
};

CallbackQueue::CallbackQueue() : state_{std::make_shared<State>()} {
}

CallbackQueue::~CallbackQueue() {
  std::thread thread;
  {
    const MutexLock guard{state_->mutex};
    state_->isClosing = true;
    thread = std::move(state_->thread);
  }
  state_->changed.notifyOne();
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
    return;
  }
  thread.join();
}

void CallbackQueue::async(Work work) {
  {
    const MutexLock guard{state_->mutex};
    state_->blocks.push_back(std::move(work));
    if (!state_->thread.joinable()) {
      state_->thread = std::thread{[state = state_] { serve(*state); }};
    }
  }
  state_->changed.notifyOne();
}

void CallbackQueue::drain() {
  std::promise<void> reached;
  async([&reached] { reached.set_value(); });
  reached.get_future().wait();
}

void CallbackQueue::serve(State& state) {
  MutexLock lock{state.mutex};
  while (true) {
    while (!state.isClosing && state.blocks.empty()) state.changed.wait(state.mutex);
    if (state.blocks.empty()) return;
    const auto work = std::move(state.blocks.front());
    state.blocks.pop_front();
    lock.unlock();
    work();
    lock.lock();
  }
}

}  // namespace installer
