// Queues, timers and signals on real threads.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/Dispatch/LinuxDispatch.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kGlobal = QualityOfService::standard;

TEST(LinuxQueues, BlocksThatWaitForEachOtherDoNotStarve) {
  LinuxDispatch dispatch;
  constexpr std::size_t count = 64;
  std::vector<std::shared_ptr<Semaphore>> links;
  for (std::size_t index = 0; index <= count; ++index) links.push_back(dispatch.makeSemaphore(0));
  // Each block waits for the one posted after it.
  for (std::size_t index = 0; index < count; ++index) {
    dispatch.asyncGlobal(kGlobal, [&links, index] {
      links[index + 1]->wait();
      links[index]->signal();
    });
  }
  dispatch.asyncGlobal(kGlobal, [&links] { links[count]->signal(); });
  links[0]->wait();
}

TEST(LinuxQueues, AQueueThatIsLetGoStillRunsWhatItHolds) {
  std::vector<int> order;
  {
    LinuxDispatch dispatch;
    auto queue = dispatch.makeSerialQueue("test", kGlobal);
    for (int number = 0; number < 1000; ++number) queue->async([&order, number] { order.push_back(number); });
    queue.reset();
  }
  ASSERT_EQ(order.size(), 1000U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(LinuxQueues, AWorkerReachesTheMainThreadWhileItTurns) {
  LinuxDispatch dispatch;
  std::atomic<bool> done{false};
  bool onMain = false;
  dispatch.asyncGlobal(kGlobal, [&] {
    dispatch.syncMain([&] { onMain = dispatch.isMainThread(); });
    done = true;
  });
  while (!done) dispatch.runMainLoop(0.01s);
  EXPECT_TRUE(onMain);
}

TEST(LinuxQueues, WhatAnotherThreadPostsIsServedWithinTheSameTurn) {
  LinuxDispatch dispatch;
  const auto turning = dispatch.makeSemaphore(0);
  bool served = false;
  dispatch.asyncMain([&] { turning->signal(); });
  dispatch.asyncGlobal(kGlobal, [&] {
    turning->wait();
    dispatch.asyncMain([&] {
      served = true;
      dispatch.asyncMainAfter(0s, [] {});
    });
  });
  while (!served) dispatch.runMainLoop(0.05s);
}

TEST(LinuxQueues, ATurnOfNothingServesWhatIsThere) {
  LinuxDispatch dispatch;
  bool served = false;
  dispatch.asyncMain([&] { served = true; });
  dispatch.runMainLoop(0s);
  EXPECT_TRUE(served);
}

TEST(LinuxQueues, AnEndlessWaitIsNoOverflow) {
  LinuxDispatch dispatch;
  EXPECT_TRUE(dispatch.makeSemaphore(1)->waitFor(Duration{1e300}));
  EXPECT_FALSE(dispatch.makeSemaphore(0)->waitFor(Duration{-1}));
}

TEST(LinuxTimers, NothingFiresOnceCancelHasReturned) {
  LinuxDispatch dispatch;
  for (int round = 0; round < 50; ++round) {
    const auto fired = dispatch.makeSemaphore(0);
    auto alive = std::make_unique<std::atomic<int>>(0);
    const auto timer = dispatch.startTimer(0.001s, [&, raw = alive.get()] {
      ++*raw;
      fired->signal();
    });
    fired->wait();
    timer->cancel();
    alive.reset();  // a later firing would write to freed memory, which the sanitizers report
  }
}

TEST(LinuxTimers, AHandlerMayCancelItsOwnTimer) {
  LinuxDispatch dispatch;
  std::atomic<int> count{0};
  std::atomic<Timer*> timer{nullptr};
  const auto cancelled = dispatch.makeSemaphore(0);
  const auto owner = dispatch.startTimer(0.001s, [&] {
    Timer* const self = timer;
    if (self == nullptr) return;
    ++count;
    self->cancel();
    cancelled->signal();
  });
  timer = owner.get();
  cancelled->wait();
  owner->cancel();
  EXPECT_EQ(count, 1);
}

TEST(LinuxTimers, ATimerLetGoInItsHandlerEndsQuietly) {
  LinuxDispatch dispatch;
  const auto ended = dispatch.makeSemaphore(0);
  const auto given = dispatch.makeSemaphore(0);
  std::unique_ptr<Timer> timer;
  timer = dispatch.startTimer(0.001s, [&] {
    given->wait();
    timer.reset();
    ended->signal();
  });
  given->signal();
  ended->wait();
}

// Signals change the process, so each case runs in a child.
int servedIn(const std::function<void()>& raise, int ignored = 0) {
  return inChild([&] {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      ::signal(signal, signal == ignored ? SIG_IGN : SIG_DFL);
    LinuxDispatch dispatch;
    LinuxSignals signals{dispatch};
    int served = 0;
    signals.onTerminationRequest([&] { ++served; });
    raise();
    dispatch.runMainLoop(0s);
    dispatch.runMainLoop(0s);
    return served;
  });
}

TEST(LinuxTerminationRequests, TheFirstIsServedOnTheMainQueue) {
  EXPECT_EQ(servedIn([] {}), 0);
  EXPECT_EQ(servedIn([] { ::raise(SIGINT); }), 1);
  EXPECT_EQ(servedIn([] { ::raise(SIGTERM); }), 1);
  EXPECT_EQ(servedIn([] { ::raise(SIGHUP); }), 1);
}

TEST(LinuxTerminationRequests, TheSecondEndsTheProcessAlthoughTheMainQueueIsBusy) {
  EXPECT_EQ(servedIn([] {
              ::raise(SIGINT);
              ::raise(SIGINT);
            }),
            128 + SIGINT);
  EXPECT_EQ(servedIn([] {
              ::raise(SIGINT);
              ::raise(SIGTERM);
            }),
            128 + SIGTERM);
}

TEST(LinuxTerminationRequests, WhatWasIgnoredFromTheStartStaysIgnored) {
  EXPECT_EQ(servedIn(
                [] {
                  ::raise(SIGHUP);
                  ::raise(SIGHUP);
                },
                SIGHUP),
            0);
}

}  // namespace
}  // namespace installer::test
