#include <gtest/gtest.h>

#include "Support/SimulatedDispatch.h"

namespace installer::testing {
namespace {

using namespace std::chrono_literals;

TEST(SimulatedDispatch, RunsMainBlocksInTheMainLoopOnly) {
  SimulatedDispatch dispatch;
  std::vector<std::string> transcript;
  dispatch.asyncMain([&] { transcript.emplace_back(dispatch.isMainThread() ? "main" : "elsewhere"); });
  dispatch.sleep(1s);
  EXPECT_TRUE(transcript.empty());
  dispatch.runMainLoop(50ms);
  EXPECT_EQ(transcript, std::vector<std::string>{"main"});
}

}  // namespace
}  // namespace installer::testing
