#include <gtest/gtest.h>

#include "Models/Pieces.h"

namespace installer {
namespace {

using Views = std::vector<std::string_view>;

TEST(Pieces, AreWhatLiesBetweenTheSeparatorsWithoutTheEmptyOnes) {
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
