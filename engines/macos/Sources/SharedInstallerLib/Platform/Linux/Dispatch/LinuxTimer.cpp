#include "Platform/Linux/Dispatch/LinuxTimer.h"

#include <algorithm>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <utility>

#include "Base/Mutex.h"
#include "Platform/Linux/Dispatch/WorkerPool.h"

namespace installer {

namespace {

// A zero interval would spin.
constexpr std::chrono::steady_clock::duration kShortestInterval = std::chrono::milliseconds{1};

}  // namespace

void TimerThread::stop() {
  context_.stop();
  std::thread thread;
  {
    const MutexLock lock{mutex_};
    thread = std::move(thread_);
  }
  if (thread.joinable()) thread.join();
}

asio::io_context& TimerThread::context() {
  const MutexLock lock{mutex_};
  if (!thread_.joinable()) {
    staysOpen_.emplace(context_.get_executor());
    thread_ = std::thread{[this] { context_.run(); }};
  }
  return context_;
}

// Shared by the timer, the pending wait and a posted or running firing.
struct LinuxTimer::State : std::enable_shared_from_this<State> {
  State(asio::io_context& context, WorkerPool& pool, std::chrono::steady_clock::duration pause, Work work)
      : workers{pool},
        interval{std::max(pause, kShortestInterval)},
        handler{std::move(work)},
        wait{context} {}

  WorkerPool& workers;
  const std::chrono::steady_clock::duration interval;
  const Work handler;
  asio::steady_timer wait;  // on the timer thread only

  Mutex mutex;
  Condition idle;
  bool cancelled GUARDED_BY(mutex) = false;
  bool posted GUARDED_BY(mutex) = false;         // a firing waits for a worker or runs
  std::thread::id firingOn GUARDED_BY(mutex){};  // the thread that runs the handler

  void arm() {
    wait.expires_after(interval);
    wait.async_wait([self = shared_from_this()](const std::error_code& error) {
      if (!error && self->tick()) self->arm();
    });
  }

  // False when there is nothing left to fire.
  bool tick() {
    {
      const MutexLock lock{mutex};
      if (cancelled) return false;
      if (std::exchange(posted, true)) return true;
    }
    workers.post([self = shared_from_this()] { self->fire(); });
    return true;
  }

  void fire() {
    {
      const MutexLock lock{mutex};
      if (cancelled) return;
      firingOn = std::this_thread::get_id();
    }
    handler();
    const MutexLock lock{mutex};
    firingOn = {};
    posted = false;
    idle.notifyAll();
  }

  void cancel() {
    MutexLock lock{mutex};
    if (!std::exchange(cancelled, true)) {
      // Ends the wait, which releases its reference to this state.
      asio::post(wait.get_executor(), [self = shared_from_this()] { self->wait.cancel(); });
    }
    if (firingOn == std::this_thread::get_id()) return;
    while (firingOn != std::thread::id{}) idle.wait(mutex);
  }
};

LinuxTimer::LinuxTimer(TimerThread& thread, WorkerPool& workers, std::chrono::steady_clock::duration interval,
                       Work handler)
    : state_{std::make_shared<State>(thread.context(), workers, interval, std::move(handler))} {
  asio::post(thread.context(), [state = state_] {
    if (state->tick()) state->arm();
  });
}

LinuxTimer::~LinuxTimer() {
  state_->cancel();
}

void LinuxTimer::cancel() {
  state_->cancel();
}

}  // namespace installer
