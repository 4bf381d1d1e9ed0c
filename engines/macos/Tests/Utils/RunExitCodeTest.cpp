#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

#include "Utils/RunExitCode.h"

namespace installer {
namespace {

using Statuses = std::vector<std::string>;

std::int32_t numberFor(const Statuses& statuses, bool strict, bool permissionDenied) {
  return std::to_underlying(RunExitCode::forRun(statuses, strict, permissionDenied));
}

struct Outcome {
  Statuses statuses;
  bool strict;
  bool permissionDenied;
  std::int32_t exitCode;
};

TEST(RunExitCode, FollowsTheOutcomesOfTheRun) {
  const std::vector<Outcome> rows{
      {{}, false, false, 0},
      {{}, true, true, 0},
      {{"installed"}, false, false, 0},
      {{"updated"}, true, false, 0},
      {{"uninstalled"}, false, true, 0},
      {{"skipped", "already_absent"}, false, false, 0},
      {{"installed", "failed"}, false, false, 1},
      {{"installed", "failed"}, false, true, 1},
      {{"installed", "failed"}, true, false, 2},
      {{"installed", "failed"}, true, true, 4},
      {{"failed"}, false, false, 2},
      {{"failed"}, false, true, 4},
      {{"failed", "failed"}, true, false, 2},
      {{"cancelled"}, false, false, 1},
      {{"cancelled"}, true, false, 1},
      {{"cancelled"}, true, true, 1},
      {{"installed", "cancelled"}, true, false, 1},
      {{"failed", "cancelled"}, false, false, 2},
      {{"failed", "cancelled"}, false, true, 4},
      {{"installed", "failed", "cancelled"}, false, true, 1},
      {{"installed", "failed", "cancelled"}, true, true, 4},
      {{"Failed", "CANCELLED", "", "frobnicated"}, true, true, 0},
      {{"failed", "frobnicated"}, false, false, 2},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(numberFor(row.statuses, row.strict, row.permissionDenied), row.exitCode)
        << ::testing::PrintToString(row.statuses) << " strict=" << row.strict
        << " permissionDenied=" << row.permissionDenied;
  }
}

TEST(RunExitCode, CountsFiveWordsAsSuccess) {
  EXPECT_THAT(
      RunExitCode::successStatuses,
      ::testing::UnorderedElementsAre("installed", "updated", "uninstalled", "already_absent", "skipped"));
}

// The same rule as a table of the kinds of statuses.
std::int32_t byTable(bool anyFailed, bool anySucceeded, bool anyCancelled, bool strict, bool denied) {
  const std::int32_t x = denied ? 4 : 2;
  const std::int32_t lenient[2][2][2] = {
      //            none cancelled  some cancelled
      {/* nothing failed, none succeeded */ {0, 1}, /* some succeeded */ {0, 1}},
      {/* some failed, none succeeded */ {x, x}, /* some succeeded */ {1, 1}},
  };
  return strict && anyFailed ? x : lenient[anyFailed][anySucceeded][anyCancelled];
}

TEST(RunExitCode, AgreesWithItsTableOnRandomRuns) {
  const Statuses words{
      "installed", "updated", "uninstalled", "already_absent", "skipped", "failed", "cancelled", "other", ""};
  const Statuses successes(words.begin(), words.begin() + 5);
  std::mt19937 random{20260301};
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 20'000; ++round) {
    Statuses statuses(below(6));
    for (auto& status : statuses) status = words[below(words.size())];
    const auto has = [&statuses](const std::string& word) {
      return std::ranges::find(statuses, word) != statuses.end();
    };
    const bool strict = below(2) == 1;
    const bool denied = below(2) == 1;
    EXPECT_EQ(numberFor(statuses, strict, denied),
              byTable(has("failed"), std::ranges::any_of(successes, has), has("cancelled"), strict, denied))
        << ::testing::PrintToString(statuses) << " strict=" << strict << " denied=" << denied;
  }
}

}  // namespace
}  // namespace installer
