#include "Support.h"
#include "support/Unicode.h"

namespace lab {
namespace {

TEST(Unicode, ComposesNames) {
  struct Row {
    std::string name;
    std::optional<std::string> expected;
  };
  const std::vector<Row> rows{
      {"", ""},
      {"plain", "plain"},
      {"U\u0308ni\u0308", "\u00dcn\u00ef"},
      {"\u00dc", "\u00dc"},
      {"\u1112\u1161\u11ab", "\ud55c"},
      {"\xff", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(composed(row.name), row.expected) << row.name;
}

TEST(Unicode, FoldsWhatACaseInsensitiveVolumeConfuses) {
  EXPECT_EQ(caseFolded("README"), caseFolded("readme"));
  EXPECT_EQ(caseFolded("\u00c9"), caseFolded("e\u0301"));
  EXPECT_NE(caseFolded("a"), caseFolded("b"));
  EXPECT_EQ(caseFolded("\xff"), std::nullopt);
}

}  // namespace
}  // namespace lab
