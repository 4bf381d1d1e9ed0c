#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <thread>

#include "Engine/EngineEmitter.h"
#include "Support/SimulatedMachine.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::EndsWith;

class EngineEmitterTest : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;

  static void emitLog(EventLevel level, std::string message) {
    EngineEmitter::emit({EngineEvent::Log{level, std::move(message)}});
  }
};

TEST_F(EngineEmitterTest, WritesOneLineAnEvent) {
  EngineEmitter::emit({EngineEvent::Stage{"brenna", AppStage::download, 1, 1}});
  EngineEmitter::emit({EngineEvent::DiskFreeResult{"/", 1}});
  EXPECT_THAT(machine.streams.output(), EndsWith("\n"));
  EXPECT_EQ(machine.streams.outputLines().size(), 2U);
  EXPECT_EQ(machine.streams.events().size(), 2U);
}

TEST_F(EngineEmitterTest, ForwardsLogEventsToTheLogFileByLevel) {
  for (const auto level : {EventLevel::info, EventLevel::warn, EventLevel::error}) emitLog(level, "m");
  EXPECT_EQ(machine.logLines("engine: "), (Lines{"INFO engine: m", "WARN engine: m", "ERROR engine: m"}));
}

TEST_F(EngineEmitterTest, LogsNothingOfOtherEvents) {
  EngineEmitter::emit({EngineEvent::Stage{"brenna", AppStage::download, 1, 1}});
  EXPECT_TRUE(machine.logLines().empty());
}

TEST_F(EngineEmitterTest, SwallowsAnEventThatCantBeEncoded) {
  EngineEmitter::emit({EngineEvent::Progress{"brenna", {.percent = std::nan("")}, {}}});
  EXPECT_TRUE(machine.streams.events().empty());
  EXPECT_EQ(machine.logLines(),
            (Lines{"ERROR EngineEmitter: failed to encode event: percent isn't a finite number"}));
}

TEST_F(EngineEmitterTest, OutlivesAReaderThatWentAway) {
  machine.streams.readerGoesAway();
  emitLog(EventLevel::error, "nobody hears");
  EXPECT_EQ(machine.logLines("nobody"), (Lines{"ERROR engine: nobody hears"}));
}

TEST_F(EngineEmitterTest, KeepsLinesWholeWhenTwoThreadsEmitAtOnce) {
  static constexpr int kRounds = 500;
  const auto emitMany = [](const std::string& app) {
    for (int i = 0; i < kRounds; ++i)
      EngineEmitter::emit({EngineEvent::Stage{app, AppStage::download, i, kRounds}});
  };
  std::thread first{emitMany, "brenna"};
  std::thread second{emitMany, "tolvi"};
  first.join();
  second.join();

  std::map<std::string, int> next;
  for (const auto& text : machine.streams.outputLines()) {
    const auto event = Json::parse(text, nullptr, false);
    ASSERT_FALSE(event.is_discarded()) << text;
    EXPECT_EQ(event["index"], next[event["app"]]++);
  }
  EXPECT_EQ(next, (std::map<std::string, int>{{"brenna", kRounds}, {"tolvi", kRounds}}));
}

}  // namespace
}  // namespace installer
