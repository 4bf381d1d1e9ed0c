#include "Platform/Linux/Dispatch/CallbackQueue.h"

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

namespace installer {

struct CallbackQueue::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Work> blocks;
  bool isClosing = false;
  std::thread thread;  // starts with the first block
};

CallbackQueue::CallbackQueue() : state_{std::make_shared<State>()} {
}

CallbackQueue::~CallbackQueue() {
  std::thread thread;
  {
    const std::lock_guard guard{state_->mutex};
    state_->isClosing = true;
    thread = std::move(state_->thread);
  }
  state_->changed.notify_one();
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
    return;
  }
  thread.join();
}

void CallbackQueue::async(Work work) {
  {
    const std::lock_guard guard{state_->mutex};
    state_->blocks.push_back(std::move(work));
    if (!state_->thread.joinable()) {
      state_->thread = std::thread{[state = state_] { serve(*state); }};
    }
  }
  state_->changed.notify_one();
}

void CallbackQueue::drain() {
  std::promise<void> reached;
  async([&reached] { reached.set_value(); });
  reached.get_future().wait();
}

void CallbackQueue::serve(State& state) {
  std::unique_lock lock{state.mutex};
  while (true) {
    state.changed.wait(lock, [&state] { return state.isClosing || !state.blocks.empty(); });
    if (state.blocks.empty()) return;
    const auto work = std::move(state.blocks.front());
    state.blocks.pop_front();
    lock.unlock();
    work();
    lock.lock();
  }
}

}  // namespace installer
