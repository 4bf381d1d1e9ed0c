#include "Support.h"
#include "diskimage/VolumeListing.h"

namespace lab {
namespace {

using testing::HasSubstr;

constexpr const char* kSampleFolder = R"(
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

ListedItem folder(const std::string& path) {
  return {path, ItemKind::folder, 0, {}, {}};
}

ListedItem file(const std::string& path, std::uint64_t size) {
  return {path, ItemKind::file, size, {}, {}};
}

TEST(VolumeListing, TellsFormatFoldersAndSizes) {
  const auto listing = parseListing(kSampleFolder);
  ASSERT_TRUE(listing) << listing.error();
  EXPECT_EQ(listing->format, VolumeFormat::hfs);
  ASSERT_EQ(listing->items.size(), 2U);
  EXPECT_EQ(listing->items[0].path, "Kelo");
  EXPECT_EQ(listing->items[0].kind, ItemKind::folder);
  EXPECT_EQ(listing->items[1].path, "Kelo/a = b");
  EXPECT_EQ(listing->items[1].kind, ItemKind::file);
  EXPECT_EQ(listing->items[1].size, 12U);
  EXPECT_EQ(listing->items[0].permissions, 0755U);
  EXPECT_EQ(listing->items[1].permissions, 0644U);
}

TEST(VolumeListing, TakesKindsFromTheModeOnAPFSWhichHasNoOtherSign) {
  const auto listing = parseListing(R"(
Type = Dmg
--
Type = APFS
Name = Kelo Brenna.apfs

----------
Path = App.app
Size = 
Mode = drwxr-xr-x

Path = App.app/run
Size = 3
Mode = -rwxr-xr-x

Path = Applications
Size = 13
Mode = lrwxr-xr-x
Symbolic Link = /Applications

Path = no mode
Size = 1
Mode = 0---------
)");
  ASSERT_TRUE(listing) << listing.error();
  EXPECT_EQ(listing->format, VolumeFormat::apfs);
  EXPECT_EQ(listing->name, "Kelo Brenna");
  ASSERT_EQ(listing->items.size(), 4U);
  EXPECT_EQ(listing->items[0].kind, ItemKind::folder);
  EXPECT_EQ(listing->items[1].kind, ItemKind::file);
  EXPECT_EQ(listing->items[2].kind, ItemKind::link);
  EXPECT_EQ(listing->items[2].target, "/Applications");
  EXPECT_EQ(listing->items[3].permissions, std::nullopt);
  EXPECT_TRUE(checkListing(*listing, {4, 100}));
}

TEST(VolumeListing, LeavesTheSystemsOwnItemsOut) {
  const auto left = [](VolumeFormat format, std::vector<ListedItem> items) {
    VolumeListing listing{format, "", std::move(items)};
    dropSystemItems(listing);
    std::vector<std::string> paths;
    for (const ListedItem& item : listing.items) paths.push_back(item.path);
    return paths;
  };
  EXPECT_THAT(
      left(VolumeFormat::hfs, {folder("v"), file("v/.journal", 8), file("v/.journal_info_block", 8),
                               file("v/.journalist", 1), file("v/a/.journal", 1), folder("v/.Trashes"),
                               file("v/.Trashes/x", 1), folder("v/[HFS+ Private Data]"),
                               folder("v/.HFS+ Private Directory Data_"), file("v/.fseventsd/x", 1)}),
      testing::ElementsAre("v", "v/.journalist", "v/a/.journal"));
  EXPECT_THAT(left(VolumeFormat::apfs, {file(".fseventsd/x", 1), folder("a"), file("a/.fseventsd", 1)}),
              testing::ElementsAre("a", "a/.fseventsd"));
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
      {"plain", {folder("v"), file("v/a", 5)}, true},
      {"children before their folder", {file("v/a", 5), folder("v")}, true},
      {"absolute", {file("/etc/passwd", 5)}, false},
      {"parent", {folder("v"), folder("v/..")}, false},
      {"parent in the middle", {folder("v"), file("v/../a", 0)}, false},
      {"dot", {folder("v"), file("v/./a", 0)}, false},
      {"empty", {file("", 0)}, false},
      {"trailing slash", {file("v/", 0)}, false},
      {"below a link", {folder("v"), file("v/link", 4), file("v/link/a", 5)}, false},
      {"a link and a folder of one name", {file("v", 4), folder("v"), file("v/a", 5)}, false},
      {"no parent", {file("v/a", 5)}, false},
      {"too large", {file("a", 60), file("b", 41)}, false},
      {"just fits", {file("a", 60), file("b", 40)}, true},
      {"sizes that wrap", {file("a", 60), file("b", UINT64_MAX - 10)}, false},
      {"too many", {file("a", 0), file("b", 0), file("c", 0), file("d", 0)}, false},
  };
  for (const Row& row : rows) {
    const auto checked = checkListing({VolumeFormat::hfs, "", row.items}, {3, 100});
    EXPECT_EQ(checked.has_value(), row.good) << row.name;
  }
}

}  // namespace
}  // namespace lab
