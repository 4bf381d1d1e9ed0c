#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Args.h"

namespace installer {
namespace {

using Values = std::map<std::string, std::string>;
using Switches = std::set<std::string>;

struct ParsedLine {
  std::vector<std::string> tokens;
  std::optional<std::string> subcommand;
  Values values;
  Switches switches;
};

TEST(Args, FollowsItsGrammar) {
  const std::vector<ParsedLine> rows{
      {{}, {}, {}, {}},
      {{"hello"}, "hello", {}, {}},
      {{"HELLO"}, "HELLO", {}, {}},
      {{""}, "", {}, {}},
      {{"-x"}, "-x", {}, {}},
      {{"--offline", "hello"}, {}, {{"offline", "hello"}}, {"offline"}},
      {{"hello", "--offline", "extra"}, "hello", {{"offline", "extra"}}, {"offline"}},
      {{"hello", "stray", "--offline"}, "hello", {}, {"offline"}},
      {{"run", "--ACTION", "Update", "--OFFLINE"}, "run", {{"action", "Update"}}, {"action", "offline"}},
      {{"run", "--out=/tmp/X"}, "run", {}, {"out=/tmp/x"}},
      {{"run", "--path", "-5"}, "run", {{"path", "-5"}}, {"path"}},
      {{"run", "--path", ""}, "run", {{"path", ""}}, {"path"}},
      {{"run", "--a", "--b", "v"}, "run", {{"b", "v"}}, {"a", "b"}},
      {{"run", "--a", "1", "--a", "2"}, "run", {{"a", "2"}}, {"a"}},
      {{"run", "--a", "1", "--A"}, "run", {{"a", "1"}}, {"a"}},
      {{"run", "--", "v"}, "run", {{"", "v"}}, {""}},
      {{"run", "--a", "1", "2", "--b"}, "run", {{"a", "1"}}, {"a", "b"}},
      {{"run", "run"}, "run", {}, {}},
  };
  for (const auto& row : rows) {
    const Args args{row.tokens};
    EXPECT_EQ(args.subcommand, row.subcommand) << ::testing::PrintToString(row.tokens);
    EXPECT_EQ(args.values, row.values) << ::testing::PrintToString(row.tokens);
    EXPECT_EQ(args.switches, row.switches) << ::testing::PrintToString(row.tokens);
  }
}

TEST(Args, AnswersByName) {
  const Args args{{"run", "--apps", "brenna", "--strict"}};
  EXPECT_EQ(args.value("apps"), "brenna");
  EXPECT_EQ(args.value("strict"), std::nullopt);
  EXPECT_TRUE(args.has("strict"));
  EXPECT_FALSE(args.has("offline"));
}

}  // namespace
}  // namespace installer
