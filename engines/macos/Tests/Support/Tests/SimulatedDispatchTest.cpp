#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "Support/SimulatedDispatch.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;
using Transcript = std::vector<std::string>;

class SimulatedDispatchTest : public ::testing::Test {
 protected:
  SimulatedDispatch dispatch;
  Transcript transcript;

  Work note(std::string text) {
    return [this, text] { transcript.push_back(text + (dispatch.isMainThread() ? " on main" : "")); };
  }
  void onWorker(Work work) { dispatch.asyncGlobal(QualityOfService::standard, std::move(work)); }
};

TEST_F(SimulatedDispatchTest, RunsMainBlocksInTheMainLoopOnly) {
  dispatch.asyncMain(note("block"));
  dispatch.sleep(1s);
  EXPECT_EQ(transcript, Transcript{});
  dispatch.runMainLoop(50ms);
  EXPECT_EQ(transcript, Transcript{"block on main"});
}

TEST_F(SimulatedDispatchTest, KeepsMainBlocksBackWhileAMainBlockWaits) {
  dispatch.asyncMain([this] {
    transcript.emplace_back("first begins");
    dispatch.sleep(1s);
    transcript.emplace_back("first ends");
  });
  dispatch.asyncMain(note("second"));
  dispatch.runUntilIdle();
  EXPECT_EQ(transcript, (Transcript{"first begins", "first ends", "second on main"}));
}

TEST_F(SimulatedDispatchTest, RunsWorkersWhileTheMainThreadIsBlocked) {
  const auto semaphore = dispatch.makeSemaphore(0);
  onWorker([&] {
    note("worker")();
    semaphore->signal();
  });
  semaphore->wait();
  EXPECT_EQ(transcript, Transcript{"worker"});
  EXPECT_EQ(dispatch.elapsed(), 0s);
}

TEST_F(SimulatedDispatchTest, MovesTimeOnlyWhenNothingIsLeftToRun) {
  dispatch.asyncMainAfter(5s, note("late"));
  onWorker(note("early"));
  dispatch.advance(4s);
  EXPECT_EQ(transcript, Transcript{"early"});
  dispatch.advance(1s);
  EXPECT_EQ(transcript, (Transcript{"early", "late on main"}));
  EXPECT_EQ(dispatch.elapsed(), 5s);
}

TEST_F(SimulatedDispatchTest, TellsADeadlineFromASignal) {
  const auto semaphore = dispatch.makeSemaphore(0);
  dispatch.schedule(3s, [&] { semaphore->signal(); });
  EXPECT_FALSE(semaphore->waitFor(2s));
  EXPECT_EQ(dispatch.elapsed(), 2s);
  EXPECT_TRUE(semaphore->waitFor(2s));
  EXPECT_EQ(dispatch.elapsed(), 3s);
}

TEST_F(SimulatedDispatchTest, CountsSignalsThatCameBeforeTheWait) {
  const auto semaphore = dispatch.makeSemaphore(1);
  semaphore->signal();
  semaphore->wait();
  EXPECT_TRUE(semaphore->waitFor(0s));
  EXPECT_FALSE(semaphore->waitFor(0s));
}

// The inner wait ends after the outer one, which nested calls on one stack can't do.
TEST_F(SimulatedDispatchTest, LetsWaitsEndInAnyOrder) {
  onWorker([this] {
    dispatch.sleep(1s);
    note("short")();
  });
  onWorker([this] {
    dispatch.sleep(3s);
    note("long")();
  });
  dispatch.runMainLoop(2s);
  EXPECT_EQ(transcript, Transcript{"short"});
  dispatch.runMainLoop(2s);
  EXPECT_EQ(transcript, (Transcript{"short", "long"}));
}

TEST_F(SimulatedDispatchTest, HopsToTheMainThreadAndWaits) {
  onWorker([this] {
    dispatch.syncMain(note("hop"));
    note("back")();
  });
  dispatch.sleep(1s);
  EXPECT_EQ(transcript, Transcript{});
  dispatch.runUntilIdle();
  EXPECT_EQ(transcript, (Transcript{"hop on main", "back"}));
}

TEST_F(SimulatedDispatchTest, NeverRunsTwoBlocksOfASerialQueueAtOnce) {
  const auto queue = dispatch.makeSerialQueue("queue", QualityOfService::utility);
  queue->async([this] {
    note("first begins")();
    dispatch.sleep(1s);
    note("first ends")();
  });
  queue->async(note("second"));
  onWorker(note("other"));
  dispatch.advance(2s);
  EXPECT_EQ(transcript, (Transcript{"first begins", "other", "first ends", "second"}));
}

TEST_F(SimulatedDispatchTest, RunsWhatADroppedQueueStillHolds) {
  dispatch.makeSerialQueue("queue", QualityOfService::utility)->async(note("block"));
  dispatch.runUntilIdle();
  EXPECT_EQ(transcript, Transcript{"block"});
}

TEST_F(SimulatedDispatchTest, FiresATimerAtOnceAndThenAtEachInterval) {
  const auto timer = dispatch.startTimer(250ms, note("tick"));
  EXPECT_EQ(transcript, Transcript{});
  dispatch.advance(500ms);
  EXPECT_EQ(transcript.size(), 3U);
  timer->cancel();
  dispatch.advance(1s);
  EXPECT_EQ(transcript.size(), 3U);
}

TEST_F(SimulatedDispatchTest, LetsATimerCancelItselfInItsHandler) {
  std::unique_ptr<Timer> timer;
  timer = dispatch.startTimer(250ms, [&] {
    note("tick")();
    timer->cancel();
  });
  dispatch.advance(2s);
  EXPECT_EQ(transcript, Transcript{"tick"});
}

TEST_F(SimulatedDispatchTest, SkipsTicksWhileTheHandlerStillRuns) {
  const auto timer = dispatch.startTimer(1s, [this] {
    note("tick")();
    dispatch.sleep(1500ms);
  });
  dispatch.advance(4s);
  EXPECT_EQ(transcript.size(), 3U);  // at 0, 1.5 and 3 seconds
}

TEST_F(SimulatedDispatchTest, EndsASliceOfTheRunLoopInTheMidstOfAWorkersWait) {
  onWorker([this] { dispatch.sleep(700s); });
  int slices = 0;
  while (dispatch.elapsed() < 600s) {
    dispatch.runMainLoop(50ms);
    ++slices;
  }
  EXPECT_EQ(slices, 12000);
}

TEST_F(SimulatedDispatchTest, SaysSoWhenAWaitCanNeverEnd) {
  const auto semaphore = dispatch.makeSemaphore(0);
  const auto hang = [&] { EXPECT_THROW(semaphore->wait(), SimulationStuck); };
  EXPECT_NONFATAL_FAILURE(hang(), "A wait can never end");
}

TEST_F(SimulatedDispatchTest, SaysSoWhenTheMainThreadBlocksAWorkersHop) {
  const auto semaphore = dispatch.makeSemaphore(0);
  onWorker([&] {
    dispatch.syncMain([] {});
    semaphore->signal();
  });
  const auto hang = [&] { EXPECT_THROW(semaphore->wait(), SimulationStuck); };
  EXPECT_NONFATAL_FAILURE(hang(), "worker 1 waits for the main queue");
}

TEST_F(SimulatedDispatchTest, SaysSoWhenVirtualTimeRunsOn) {
  const auto hang = [&] {
    EXPECT_THROW(
        {
          for (;;) dispatch.runMainLoop(1h);
        },
        SimulationStuck);
  };
  EXPECT_NONFATAL_FAILURE(hang(), "Virtual time has passed its limit");
}

TEST_F(SimulatedDispatchTest, SaysSoWhenItIsGoingRoundInCircles) {
  Work again = [&] { onWorker(again); };
  onWorker(again);
  const auto hang = [&] { EXPECT_THROW(dispatch.runMainLoop(1s), SimulationStuck); };
  EXPECT_NONFATAL_FAILURE(hang(), "round in circles");
  dispatch.shutDown();
}

TEST_F(SimulatedDispatchTest, UnwindsBlockedThreadsAtTheEnd) {
  auto alive = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = alive;
  const auto semaphore = dispatch.makeSemaphore(0);
  onWorker([semaphore, held = std::move(alive)] { semaphore->wait(); });
  dispatch.runUntilIdle();
  EXPECT_FALSE(watched.expired());
  dispatch.shutDown();
  EXPECT_TRUE(watched.expired());
}

TEST_F(SimulatedDispatchTest, RunsOnAWorkerWhileTheMainLoopTurns) {
  dispatch.runOnWorker([this] {
    dispatch.sleep(2s);
    dispatch.syncMain(note("hop"));
    note("worker")();
  });
  EXPECT_EQ(transcript, (Transcript{"hop on main", "worker"}));
  EXPECT_EQ(dispatch.elapsed(), 2s);
}

TEST_F(SimulatedDispatchTest, RunsUntilSomethingHolds) {
  bool done = false;
  dispatch.asyncMainAfter(7s, [&] { done = true; });
  dispatch.runUntil([&] { return done; });
  EXPECT_EQ(dispatch.elapsed(), 7s);
  EXPECT_NONFATAL_FAILURE(dispatch.runUntil([] { return false; }, 3s), "didn't happen within 3");
}

TEST_F(SimulatedDispatchTest, SetsTheClockWithoutLettingTimePass) {
  dispatch.advance(10s);
  dispatch.setNow("2030-01-01T00:00:00Z");
  EXPECT_EQ(dispatch.now(), TimePoint{std::chrono::sys_days{std::chrono::year{2030} / 1 / 1}});
  EXPECT_EQ(dispatch.elapsed(), 10s);
  dispatch.advance(2s);
  EXPECT_EQ(dispatch.now(), TimePoint{std::chrono::sys_days{std::chrono::year{2030} / 1 / 1} + 2s});
}

Transcript interleaving(std::uint64_t seed) {
  SimulatedDispatch dispatch{seed};
  Transcript transcript;
  const auto queue = dispatch.makeSerialQueue("queue", QualityOfService::utility);
  for (int i = 0; i < 4; ++i) {
    dispatch.asyncGlobal(QualityOfService::standard, [&dispatch, &transcript, i] {
      transcript.push_back("worker " + std::to_string(i));
      dispatch.sleep(0s);
      transcript.push_back("worker " + std::to_string(i) + " again");
    });
    queue->async([&transcript, i] { transcript.push_back("queue " + std::to_string(i)); });
    dispatch.asyncMain([&transcript, i] { transcript.push_back("main " + std::to_string(i)); });
  }
  dispatch.advance(1s);
  return transcript;
}

TEST(SimulatedDispatchSeeds, ReplayTheirOwnInterleaving) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) EXPECT_EQ(interleaving(seed), interleaving(seed)) << seed;
}

TEST(SimulatedDispatchSeeds, GiveDifferentInterleavings) {
  std::vector<Transcript> seen;
  for (std::uint64_t seed = 0; seed < 20; ++seed) seen.push_back(interleaving(seed));
  std::ranges::sort(seen);
  EXPECT_GT(std::ranges::unique(seen).begin() - seen.begin(), 15);
}

TEST(SimulatedDispatchSeeds, KeepTheOrderWithinEachQueue) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    auto order = interleaving(seed);
    std::erase_if(order, [](const std::string& line) { return line.starts_with("worker"); });
    auto queue = order;
    std::erase_if(queue, [](const std::string& line) { return line.starts_with("main"); });
    EXPECT_EQ(queue, (Transcript{"queue 0", "queue 1", "queue 2", "queue 3"})) << seed;
    std::erase_if(order, [](const std::string& line) { return line.starts_with("queue"); });
    EXPECT_EQ(order, (Transcript{"main 0", "main 1", "main 2", "main 3"})) << seed;
  }
}

}  // namespace
}  // namespace installer::test
