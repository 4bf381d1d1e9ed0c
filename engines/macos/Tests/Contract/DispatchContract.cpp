// The contract of dispatchers. The waits are short, and no case depends on how long anything takes.
#include <atomic>

#include "Base/Mutex.h"
#include "Contract/MachineUnderTest.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;

class DispatchContract : public Contract {
 protected:
  Dispatch& dispatch = machine.dispatch;
  Mutex mutex;
  Lines transcript GUARDED_BY(mutex);

  Work note(std::string text) {
    return [this, text] {
      const auto* const where = dispatch.isMainThread() ? " on main" : "";
      const MutexLock lock{mutex};
      transcript.push_back(text + where);
    };
  }
  Lines written() {
    const MutexLock lock{mutex};
    return transcript;
  }
};

TEST_P(DispatchContract, KnowsTheMainThread) {
  EXPECT_TRUE(dispatch.isMainThread());
  const auto done = dispatch.makeSemaphore(0);
  bool worker = true;
  dispatch.asyncGlobal(QualityOfService::userInitiated, [&] {
    worker = dispatch.isMainThread();
    done->signal();
  });
  done->wait();
  EXPECT_FALSE(worker);
}

TEST_P(DispatchContract, ServesTheMainQueueInTheRunLoopOnly) {
  dispatch.asyncMain(note("one"));
  dispatch.asyncMain(note("two"));
  dispatch.sleep(5ms);
  EXPECT_EQ(written(), Lines{});
  dispatch.runMainLoop(5ms);
  EXPECT_EQ(written(), (Lines{"one on main", "two on main"}));
}

TEST_P(DispatchContract, ServesWhatArrivesDuringTheSlice) {
  dispatch.asyncMain([this] { dispatch.asyncMain(note("inner")); });
  dispatch.asyncGlobal(QualityOfService::utility, [this] { dispatch.asyncMain(note("worker's")); });
  turnUntil([this] { return written().size() == 2; });
}

TEST_P(DispatchContract, DelaysBlocksOfTheMainQueue) {
  dispatch.asyncMainAfter(40ms, note("later"));
  dispatch.asyncMainAfter(10ms, note("sooner"));
  dispatch.asyncMain(note("now"));
  turnUntil([this] { return written().size() == 3; });
  EXPECT_EQ(written(), (Lines{"now on main", "sooner on main", "later on main"}));
}

TEST_P(DispatchContract, HopsToTheMainThreadAndWaits) {
  std::atomic<bool> done = false;
  dispatch.asyncGlobal(QualityOfService::standard, [&] {
    dispatch.syncMain(note("hop"));
    note("back")();
    done = true;
  });
  turnUntil([&] { return done.load(); });
  EXPECT_EQ(written(), (Lines{"hop on main", "back"}));
}

TEST_P(DispatchContract, RunsASerialQueueInOrder) {
  const auto queue = dispatch.makeSerialQueue("contract", QualityOfService::utility);
  Lines expected;
  for (int i = 0; i < 50; ++i) {
    queue->async(note(std::to_string(i)));
    expected.push_back(std::to_string(i));
  }
  const auto done = dispatch.makeSemaphore(0);
  queue->async([&] { done->signal(); });
  done->wait();
  EXPECT_EQ(written(), expected);
}

TEST_P(DispatchContract, RunsWhatADroppedQueueStillHolds) {
  const auto done = dispatch.makeSemaphore(0);
  dispatch.makeSerialQueue("contract", QualityOfService::utility)->async([&] { done->signal(); });
  done->wait();
}

TEST_P(DispatchContract, MakesWorkersAsBlocksWait) {
  constexpr int kBlocks = 40;
  const auto gate = dispatch.makeSemaphore(0);
  const auto done = dispatch.makeSemaphore(0);
  for (int i = 0; i < kBlocks; ++i) {
    dispatch.asyncGlobal(QualityOfService::standard, [&] {
      gate->wait();
      done->signal();
    });
  }
  dispatch.asyncGlobal(QualityOfService::standard, [&] {
    for (int i = 0; i < kBlocks; ++i) gate->signal();
  });
  for (int i = 0; i < kBlocks; ++i) done->wait();
}

TEST_P(DispatchContract, CountsSignals) {
  const auto semaphore = dispatch.makeSemaphore(2);
  semaphore->wait();
  EXPECT_TRUE(semaphore->waitFor(0ms));
  EXPECT_FALSE(semaphore->waitFor(5ms));
  semaphore->signal();
  EXPECT_TRUE(semaphore->waitFor(0ms));
}

TEST_P(DispatchContract, FiresATimerAgainAndAgainOffTheMainThread) {
  const auto fired = dispatch.makeSemaphore(0);
  const auto timer = dispatch.startTimer(5ms, [&] {
    note("tick")();
    fired->signal();
  });
  for (int i = 0; i < 3; ++i) fired->wait();
  timer->cancel();
  EXPECT_EQ(written().at(0), "tick");
}

TEST_P(DispatchContract, FiresATimerAtMostOnceMoreWhenItsHandlerCancelsIt) {
  std::atomic<int> fired = 0;
  std::unique_ptr<Timer> timer;
  const auto ready = dispatch.makeSemaphore(0);
  const auto cancelled = dispatch.makeSemaphore(0);
  timer = dispatch.startTimer(1ms, [&] {
    ready->wait();
    ready->signal();
    ++fired;
    timer->cancel();
    cancelled->signal();
  });
  ready->signal();
  cancelled->wait();
  dispatch.sleep(20ms);
  EXPECT_LE(fired, 2);
  timer.reset();
}

TEST_P(DispatchContract, NeverFiresATimerAfterItsCancellation) {
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> cancelled = false;
    std::atomic<bool> late = false;
    const auto fired = dispatch.makeSemaphore(0);
    const auto timer = dispatch.startTimer(1ms, [&] {
      if (cancelled) late = true;
      fired->signal();
    });
    fired->wait();
    timer->cancel();
    cancelled = true;
    dispatch.sleep(3ms);
    EXPECT_FALSE(late);
  }
}

TEST_P(DispatchContract, RunsADetachedThread) {
  const auto done = dispatch.makeSemaphore(0);
  bool onMain = true;
  dispatch.detachThread([&] {
    onMain = dispatch.isMainThread();
    done->signal();
  });
  done->wait();
  EXPECT_FALSE(onMain);
}

TEST_P(DispatchContract, MovesTheClockForward) {
  const auto before = dispatch.now();
  dispatch.sleep(5ms);
  const auto slept = dispatch.now();
  dispatch.runMainLoop(5ms);
  EXPECT_GE(slept - before, 5ms);
  EXPECT_GE(dispatch.now() - slept, 5ms);
}

INSTANTIATE_CONTRACT(DispatchContract);

// Cases for real threads only.
class RealThreads : public Contract {
 protected:
  Dispatch& dispatch = machine.dispatch;
};

TEST_P(RealThreads, KeepASerialQueueInOrderUnderContention) {
  constexpr int kThreads = 8;
  constexpr int kBlocks = 500;
  const auto queue = dispatch.makeSerialQueue("contract", QualityOfService::utility);
  const auto done = dispatch.makeSemaphore(0);
  std::vector<int> next(kThreads, 0);  // used on the queue only
  bool inOrder = true;
  for (int thread = 0; thread < kThreads; ++thread) {
    dispatch.asyncGlobal(QualityOfService::standard, [&, thread] {
      for (int i = 0; i < kBlocks; ++i) {
        queue->async([&, thread, i] {
          auto& expected = next[static_cast<std::size_t>(thread)];
          inOrder = inOrder && expected++ == i;
        });
      }
      queue->async([&] { done->signal(); });
    });
  }
  for (int thread = 0; thread < kThreads; ++thread) done->wait();
  EXPECT_TRUE(inOrder);
}

TEST_P(RealThreads, HopToTheMainThreadOneByOne) {
  constexpr int kThreads = 8;
  constexpr int kHops = 100;
  int hops = 0;  // used on the main thread only
  std::atomic<int> ended = 0;
  for (int thread = 0; thread < kThreads; ++thread) {
    dispatch.asyncGlobal(QualityOfService::standard, [&] {
      for (int i = 0; i < kHops; ++i) dispatch.syncMain([&] { ++hops; });
      ++ended;
    });
  }
  turnUntil([&] { return ended == kThreads; });
  EXPECT_EQ(hops, kThreads * kHops);
}

TEST_P(RealThreads, CancelTimersWhileTheyFire) {
  for (int round = 0; round < 100; ++round) {
    auto counter = std::make_unique<std::atomic<int>>(0);
    const auto fired = dispatch.makeSemaphore(0);
    auto timer = dispatch.startTimer(Duration{0.0002}, [&counter, fired] {
      ++*counter;
      fired->signal();
    });
    fired->wait();
    timer->cancel();
    counter.reset();  // a firing after the cancellation would use it
    timer.reset();
  }
}

TEST_P(RealThreads, SignalAndWaitFromManySides) {
  constexpr int kThreads = 8;
  constexpr int kSignals = 500;
  const auto semaphore = dispatch.makeSemaphore(0);
  for (int thread = 0; thread < kThreads; ++thread) {
    dispatch.asyncGlobal(QualityOfService::standard, [&] {
      for (int i = 0; i < kSignals; ++i) semaphore->signal();
    });
  }
  for (int i = 0; i < kThreads * kSignals; ++i) semaphore->wait();
  EXPECT_FALSE(semaphore->waitFor(0ms));
}

INSTANTIATE_TEST_SUITE_P(On, RealThreads, ::testing::Values(realImplementation()),
                         [](const auto& parameter) { return std::string{parameter.param.name}; });

}  // namespace
}  // namespace installer::test
