#include <gtest/gtest.h>

#include "Models/Text.h"

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

TEST(Text, WritesAListAsInTheLog) {
  EXPECT_EQ(listText({}), "[]");
  EXPECT_EQ(listText({"a"}), R"(["a"])");
  EXPECT_EQ(listText({"a", "b\"c\\"}), R"(["a", "b\"c\\"])");
}

TEST(Text, WritesADoubleWithItsPoint) {
  EXPECT_EQ(doubleText(5), "5.0");
  EXPECT_EQ(doubleText(0.25), "0.25");
  EXPECT_EQ(doubleText(-3), "-3.0");
  EXPECT_EQ(doubleText(0), "0.0");
  EXPECT_EQ(doubleText(33.333333333333336), "33.333333333333336");
}

}  // namespace
}  // namespace installer
