#include "Platform/Linux/Dispatch/LinuxTimer.h"

#include <algorithm>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <condition_variable>
#include <utility>

#include "Platform/Linux/Dispatch/WorkerPool.h"

namespace installer {

namespace {

// A zero interval would spin.
constexpr std::chrono::steady_clock::duration shortestInterval = std::chrono::milliseconds{1};

}  // namespace

void TimerThread::stop() {
  context_.stop();
  if (thread_.joinable()) thread_.join();
}

asio::io_context& TimerThread::context() {
  const std::lock_guard lock{mutex_};
  if (!thread_.joinable()) {
    staysOpen_.emplace(context_.get_executor());
    thread_ = std::thread{[this] { context_.run(); }};
  }
  return context_;
}

// Held by the timer, by the wait that is under way and by a firing that is posted or running.
struct LinuxTimer::State : std::enable_shared_from_this<State> {
  State(asio::io_context& context, WorkerPool& pool, std::chrono::steady_clock::duration pause, Work work)
      : workers{pool}, interval{std::max(pause, shortestInterval)}, handler{std::move(work)}, wait{context} {}

  WorkerPool& workers;
  const std::chrono::steady_clock::duration interval;
  const Work handler;
  asio::steady_timer wait;  // on the timer thread only

  std::mutex mutex;
  std::condition_variable idle;
  bool cancelled = false;
  bool posted = false;         // a firing waits for a worker or runs
  std::thread::id firingOn{};  // the thread that is in the handler

  void arm() {
    wait.expires_after(interval);
    wait.async_wait([self = shared_from_this()](const std::error_code& error) {
      if (!error && self->tick()) self->arm();
    });
  }

  // False when there is nothing left to fire.
  bool tick() {
    {
      const std::lock_guard lock{mutex};
      if (cancelled) return false;
      if (std::exchange(posted, true)) return true;
    }
    workers.post([self = shared_from_this()] { self->fire(); });
    return true;
  }

  void fire() {
    {
      const std::lock_guard lock{mutex};
      if (cancelled) return;
      firingOn = std::this_thread::get_id();
    }
    handler();
    const std::lock_guard lock{mutex};
    firingOn = {};
    posted = false;
    idle.notify_all();
  }

  void cancel() {
    std::unique_lock lock{mutex};
    if (!std::exchange(cancelled, true)) {
      // Ends the wait, and with it the hold that it has on this.
      asio::post(wait.get_executor(), [self = shared_from_this()] { self->wait.cancel(); });
    }
    if (firingOn == std::this_thread::get_id()) return;
    idle.wait(lock, [this] { return firingOn == std::thread::id{}; });
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
