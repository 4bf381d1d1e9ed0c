#include <gtest/gtest.h>
#include <utility>

#include "Base/Text.h"

namespace installer {
namespace {

TEST(Text, IsLoweredInASCIIOnly) {
  EXPECT_EQ(lowercased("SHA-256 Ärger"), "sha-256 Ärger");
}

TEST(Text, IsTrimmedAtBothEnds) {
  EXPECT_EQ(trimmed(" \t a b\r\n"), "a b");
  EXPECT_EQ(trimmed(" \n "), "");
  EXPECT_EQ(trimmed(""), "");
}

TEST(Text, IsRepairedWhereItIsNotUTF8) {
  EXPECT_EQ(repairedUTF8("Größe \"\\/\n"), "Größe \"\\/\n");
  EXPECT_EQ(repairedUTF8("caf\xE9, \xF0\x9F\x98\xFFz\n"), "caf\uFFFD, \uFFFD\uFFFDz\n");
}

TEST(Text, IsUTF8OnlyWhenEveryCharacterIsWellFormed) {
  for (const char* const text :
       {"", "plain", "Größe", "—", "大", "\U0001F600", "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF",
        "\xC2\x80", "\xE0\xA0\x80", "\xF0\x90\x80\x80"}) {
    EXPECT_TRUE(isUTF8(text)) << text;
  }
  const std::vector<std::pair<std::string, const char*>> rows{
      {"\xFF", "no lead"},
      {"\x80", "only a continuation"},
      {"a\xC3", "truncated"},
      {"\xE5\xA4", "truncated"},
      {"\xF0\x9F\x98", "truncated"},
      {"\xC3(", "no continuation"},
      {"\xC0\x80", "overlong in two"},
      {"\xC1\xBF", "overlong in two"},
      {"\xE0\x9F\xBF", "overlong in three"},
      {"\xF0\x8F\xBF\xBF", "overlong in four"},
      {"\xED\xA0\x80", "a surrogate"},
      {"\xED\xBF\xBF", "a surrogate"},
      {"\xF4\x90\x80\x80", "beyond the last character"},
      {"\xF5\x80\x80\x80", "beyond the last character"},
  };
  for (const auto& [bytes, fault] : rows) {
    EXPECT_FALSE(isUTF8("at the end " + bytes)) << fault;
    EXPECT_FALSE(isUTF8(bytes + " at the start")) << fault;
  }
}

TEST(Text, IsCountedAndCutByCharacters) {
  EXPECT_EQ(characterCount(""), 0U);
  EXPECT_EQ(characterCount("Größe 大"), 7U);
  EXPECT_EQ(firstCharacters("Größe", 3), "Grö");
  EXPECT_EQ(firstCharacters("Größe", 0), "");
  EXPECT_EQ(firstCharacters("Größe", 9), "Größe");
}

TEST(Text, WritesAListAsInTheLog) {
  EXPECT_EQ(listText({}), "[]");
  EXPECT_EQ(listText({"a"}), R"(["a"])");
  EXPECT_EQ(listText({"a", "b\"c\\"}), R"(["a", "b\"c\\"])");
}

TEST(Text, OfSomebodyElseBecomesOneLine) {
  const struct {
    std::string text;
    std::string line;
  } rows[] = {
      {"", ""},
      {"  \n\t ", ""},
      {"hdiutil: attach failed - image not recognized\n", "hdiutil: attach failed - image not recognized"},
      {"one\r\n\r\ntwo  three", "one two three"},
      {"[t] [ERROR] a\n[t] [ERROR] forged", "[t] [ERROR] a [t] [ERROR] forged"},
      {std::string{"a\0b\x1b[31mc\x7f", 10}, "a b [31mc"},
      {"\xc2\x85next\xc2\xa0kept", "next\xc2\xa0kept"},
      {"bad \xff\xfe bytes, good é", "bad ?? bytes, good é"},
      {"cut \xe2\x80", "cut ??"},
  };
  for (const auto& row : rows) EXPECT_EQ(oneLine(row.text), row.line) << row.text;
  EXPECT_EQ(oneLine("éèê", 2), "éè");
}

TEST(Text, IsUTF8OnlyWhenWellFormedThroughout) {
  for (const char* good : {"", "a", "é", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(isUTF8(good)) << good;
  }
  for (const char* bad : {"\x80", "\xc0\xaf", "\xc3", "\xe0\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                          "\xf0\x80\x80\xaf", "\xff", "a\xe2\x82"}) {
    EXPECT_FALSE(isUTF8(bad)) << bad;
  }
}

TEST(Text, WritesADoubleWithItsPoint) {
  EXPECT_EQ(doubleText(5), "5.0");
  EXPECT_EQ(doubleText(0.25), "0.25");
  EXPECT_EQ(doubleText(-3), "-3.0");
  EXPECT_EQ(doubleText(0), "0.0");
  EXPECT_EQ(doubleText(33.333333333333336), "33.333333333333336");
}

using Views = std::vector<std::string_view>;

TEST(Text, NonEmptyPiecesAreWhatLiesBetweenTheSeparatorsWithoutTheEmptyOnes) {
  const std::vector<std::pair<std::string_view, Views>> rows{
      {"", {}},
      {",", {}},
      {",,,", {}},
      {"a", {"a"}},
      {"a,b", {"a", "b"}},
      {",a,,b,", {"a", "b"}},
      {" a , ", {" a ", " "}},
      {"a;b", {"a;b"}},
  };
  for (const auto& [text, pieces] : rows) EXPECT_EQ(nonEmptyPieces(text, ','), pieces) << text;
}

}  // namespace
}  // namespace installer
