#include "Support.h"
#include "diskimage/VolumeListing.h"

namespace lab {
namespace {

using testing::HasSubstr;

constexpr const char* sample = R"(
Listing archive: image.dmg

--
Path = image.dmg
Type = Dmg
----
Path = 2.hfs
--
Path = 2.hfs
Type = HFS
Method = HFS+

----------
Path = Kelo
Folder = +
Size = 
Mode = drwxr-xr-x

Path = Kelo/a = b
Folder = -
Size = 12
Mode = -rw-r--r--

)";

TEST(VolumeListing, TellsFormatFoldersAndSizes) {
  const auto listing = parseListing(sample);
  ASSERT_TRUE(listing) << listing.error();
  EXPECT_EQ(listing->format, VolumeFormat::hfs);
  ASSERT_EQ(listing->items.size(), 2U);
  EXPECT_EQ(listing->items[0].path, "Kelo");
  EXPECT_TRUE(listing->items[0].isFolder);
  EXPECT_EQ(listing->items[1].path, "Kelo/a = b");
  EXPECT_FALSE(listing->items[1].isFolder);
  EXPECT_EQ(listing->items[1].size, 12U);
  EXPECT_EQ(listing->items[0].permissions, 0755U);
  EXPECT_EQ(listing->items[1].permissions, 0644U);
}

TEST(VolumeListing, NeedsAVolumeThatCanBeMounted) {
  for (const char* text :
       {"", "Type = HFS\n", "\nType = Iso\n\n----------\nPath = a\n", "\nType = Dmg\n\n----------\n"}) {
    const auto listing = parseListing(text);
    ASSERT_FALSE(listing) << text;
    EXPECT_THAT(listing.error(), HasSubstr("no mountable file systems"));
  }
}

TEST(VolumeListing, IsRefusedWhenItCouldLeaveItsFolder) {
  struct Row {
    const char* name;
    std::vector<ListedItem> items;
    bool good;
  };
  const std::vector<Row> rows{
      {"plain", {{"v", true, 0, {}}, {"v/a", false, 5, {}}}, true},
      {"children before their folder", {{"v/a", false, 5, {}}, {"v", true, 0, {}}}, true},
      {"absolute", {{"/etc/passwd", false, 5, {}}}, false},
      {"parent", {{"v", true, 0, {}}, {"v/..", true, 0, {}}}, false},
      {"parent in the middle", {{"v", true, 0, {}}, {"v/../a", false, 0, {}}}, false},
      {"dot", {{"v", true, 0, {}}, {"v/./a", false, 0, {}}}, false},
      {"empty", {{"", false, 0, {}}}, false},
      {"trailing slash", {{"v/", false, 0, {}}}, false},
      {"below a link", {{"v", true, 0, {}}, {"v/link", false, 4, {}}, {"v/link/a", false, 5, {}}}, false},
      {"a link and a folder of one name",
       {{"v", false, 4, {}}, {"v", true, 0, {}}, {"v/a", false, 5, {}}},
       false},
      {"no parent", {{"v/a", false, 5, {}}}, false},
      {"too large", {{"a", false, 60, {}}, {"b", false, 41, {}}}, false},
      {"just fits", {{"a", false, 60, {}}, {"b", false, 40, {}}}, true},
      {"sizes that wrap", {{"a", false, 60, {}}, {"b", false, UINT64_MAX - 10, {}}}, false},
      {"too many",
       {{"a", false, 0, {}}, {"b", false, 0, {}}, {"c", false, 0, {}}, {"d", false, 0, {}}},
       false},
  };
  for (const Row& row : rows) {
    const auto checked = checkListing({VolumeFormat::hfs, row.items}, {3, 100});
    EXPECT_EQ(checked.has_value(), row.good) << row.name;
  }
}

}  // namespace
}  // namespace lab
