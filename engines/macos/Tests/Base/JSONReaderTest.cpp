#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Base/JSONReader.h"

namespace installer {
namespace {

using namespace std::string_literals;

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

TEST(JSONReader, TakesObjectsAndArrays) {
  EXPECT_EQ(JSONReader::parse(R"( {"a": [1, 2.5, "é", null, true]} )").value().dump(),
            R"({"a":[1,2.5,"é",null,true]})");
  EXPECT_TRUE(JSONReader::parse("[]").value().empty());
}

TEST(JSONReader, RefusesWhatIsNotStrictJSON) {
  for (const auto& text : std::vector<std::string>{"",           " ",           "1",
                                                   "\"text\"",   "null",        "{",
                                                   "[1,]",       "{\"a\":1,}",  "{a:1}",
                                                   "{'a':1}",    "[1] [2]",     "// c\n[]",
                                                   "[NaN]",      "[01]",        "[+1]",
                                                   "[\"\xff\"]", "[\"\xc3\"]",  "[\"\xed\xa0\x80\"]",
                                                   "[\"a\nb\"]", "[\"\\x\"]",   "\xff\xfe[\0]\0"s,
                                                   "\0"s,        "[]\0"s,       "[]\0garbage"s,
                                                   "[\0]"s,      "[\"a\0b\"]"s, "[1]\0[2]"s}) {
    const auto parsed = JSONReader::parse(text);
    ASSERT_FALSE(parsed) << text;
    EXPECT_FALSE(parsed.error().localizedDescription.empty());
  }
}

TEST(JSONReader, NamesThePlaceOfAFault) {
  EXPECT_EQ(JSONReader::parse("[1, x]").error().localizedDescription,
            "The text isn't valid JSON around byte 5.");
}

TEST(JSONReader, LosesOnlyTheValueThatCannotBeHeld) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"a": 1e400, "b": 2})", R"({"a":0.5,"b":2})"},
      {R"({"a": [-1E+999, 1e-999, 0e999]})", R"({"a":[0.5,0.0,0.0]})"},
      {"[" + std::string(400, '9') + "]", "[0.5]"},
      {R"({"a": "\ud800", "b": "x\\\ud83d\ude00"})", R"({"a":0.5,"b":"x\\😀"})"},
      {R"(["\udc00", "\ud800\ud800", "\uD800x", "\\ud800", "\ud800\udc00"])",
       R"([0.5,0.5,0.5,"\\ud800","𐀀"])"},
      {R"({"\ud800" : 1, "\udfff": 2, "1e400": "1e400"})", R"({"1e400":"1e400","\\ud800":1,"\\udfff":2})"},
  };
  for (const auto& [text, value] : rows) {
    const auto parsed = JSONReader::parse(text);
    ASSERT_TRUE(parsed) << text;
    EXPECT_EQ(parsed->dump(), value) << text;
    EXPECT_FALSE(JSONReader::parse(text, JSONReader::BadValues::refuse)) << text;
  }
}

TEST(JSONReader, RefusesFaultsBesideAValueThatCannotBeHeld) {
  for (const std::string text :
       {"[1e400",        "[01e400]",       "[1.e400]",       "[1e400+]",         "[1e400+5]",
        "[1e400.5]",     "[1e400 1]",      "[\"\\ud800]",    "[\"\\ud800\\x\"]", "[\"\\ud8\"]",
        "[\"\\u-800\"]", "1e400",          "\"\\ud800\"",    "[\"\\ud800\n\"]",  "[\"\\ud800",
        "[\"\\",         R"(["\udc00"7])", R"([7"\udc00"])", R"([-"\udc00"])",   R"(["\udc00"e5])"}) {
    EXPECT_FALSE(JSONReader::parse(text)) << text;
  }
}

TEST(JSONReader, LetsTheLastOfARepeatedKeyStand) {
  EXPECT_EQ(JSONReader::parse(R"({"a": 1, "a": 2})").value().dump(), R"({"a":2})");
}

TEST(JSONReader, BoundsTheDepth) {
  EXPECT_TRUE(JSONReader::parse(nested(JSONReader::kMaximumDepth)));
  EXPECT_FALSE(JSONReader::parse(nested(JSONReader::kMaximumDepth + 1)));
}

TEST(JSONReader, CountsNoBracketsInsideStrings) {
  const auto brackets = std::string(JSONReader::kMaximumDepth + 1, '[');
  EXPECT_TRUE(JSONReader::parse("[\"" + brackets + "\"]"));
  EXPECT_TRUE(JSONReader::parse("[\"\\\"" + brackets + "\"]"));
  EXPECT_FALSE(JSONReader::parse("[\"\\\\\"," + brackets));
}

TEST(JSONReader, RefusesEndlessNestingWithoutBuildingIt) {
  std::string endless;
  endless.assign(50'000'000, '[');
  EXPECT_FALSE(JSONReader::parse(endless));
  EXPECT_FALSE(JSONReader::parse(std::string(JSONReader::kMaximumBytes, '[')));
  EXPECT_FALSE(JSONReader::parse(std::string(JSONReader::kMaximumBytes, '{')));
}

TEST(JSONReader, BoundsTheLength) {
  const auto text = [](std::size_t bytes) { return "[]" + std::string(bytes - 2, ' '); };
  EXPECT_TRUE(JSONReader::parse(text(JSONReader::kMaximumBytes)));
  EXPECT_FALSE(JSONReader::parse(text(JSONReader::kMaximumBytes + 1)));
}

TEST(JSONReader, ReadsMembersInTheAskedTypeOnly) {
  const auto value =
      JSONReader::parse(R"({"text": "a", "empty": "", "yes": true, "one": 1, "half": 0.5, "whole": 2.0,
                                           "list": ["a", "b"], "mixed": ["a", 1], "map": {"k": "v"},
                                           "mixedMap": {"k": "v", "l": 1}, "null": null})")
          .value();
  EXPECT_EQ(JSONReader::string(value, "text"), "a");
  EXPECT_EQ(JSONReader::string(value, "one"), std::nullopt);
  EXPECT_EQ(JSONReader::nonEmptyString(value, "text"), "a");
  EXPECT_EQ(JSONReader::nonEmptyString(value, "empty"), std::nullopt);
  EXPECT_EQ(JSONReader::nonEmptyString(value, "one"), std::nullopt);
  EXPECT_EQ(JSONReader::boolean(value, "yes"), true);
  EXPECT_EQ(JSONReader::boolean(value, "one"), std::nullopt);
  EXPECT_EQ(JSONReader::boolean(value, "text"), std::nullopt);
  EXPECT_EQ(JSONReader::integer(value, "one"), 1);
  EXPECT_EQ(JSONReader::integer(value, "whole"), 2);
  EXPECT_EQ(JSONReader::integer(value, "half"), std::nullopt);
  EXPECT_EQ(JSONReader::integer(value, "yes"), std::nullopt);
  EXPECT_EQ(JSONReader::strings(value, "list"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(JSONReader::strings(value, "mixed"), std::nullopt);
  EXPECT_EQ(JSONReader::strings(value, "map"), std::nullopt);
  EXPECT_EQ(JSONReader::stringMap(value, "map"), (std::map<std::string, std::string>{{"k", "v"}}));
  EXPECT_EQ(JSONReader::stringMap(value, "mixedMap"), std::nullopt);
  EXPECT_EQ(JSONReader::stringMap(value, "list"), std::nullopt);
  EXPECT_EQ(JSONReader::string(value, "missing"), std::nullopt);
  EXPECT_EQ(JSONReader::string(value, "null"), std::nullopt);
  EXPECT_EQ(JSONReader::member(Json::array(), "text"), nullptr);
}

}  // namespace
}  // namespace installer
