#include <cstdlib>
#include <fstream>
#include <zlib.h>

#include "plist/plist.h"

#include "Support.h"
#include "diskimage/BlockTable.h"
#include "diskimage/DiskImage.h"

namespace lab {
namespace {

using test::contentOf;
using test::namesIn;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

class DiskImage : public test::FolderTest {
 protected:
  fs::path source() const {
    write("source/App/run", "#!/bin/sh\n", 0755);
    write("source/big", std::string(700'000, 'x'));
    return folder / "source";
  }
  const fs::path file = folder / "made" / "image.dmg";
  void SetUp() override { fs::create_directory(file.parent_path()); }
};

std::uint32_t crcOf(const std::string& bytes) {
  return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

template <class Integer>
Integer at(const std::string& bytes, std::size_t offset) {
  return loadBig<Integer>(reinterpret_cast<const std::uint8_t*>(bytes.data()) + offset);
}

struct Table {
  std::string name;
  std::string bytes;
};

// The block tables, read by libplist.
std::vector<Table> tablesOf(const std::string& image) {
  const std::string trailer = image.substr(image.size() - 512);
  const std::string list = image.substr(at<std::uint64_t>(trailer, 216), at<std::uint64_t>(trailer, 224));
  plist_t root = nullptr;
  plist_from_memory(list.data(), static_cast<std::uint32_t>(list.size()), &root);
  plist_t blocks = plist_access_path(root, 2, "resource-fork", "blkx");
  std::vector<Table> tables;
  for (std::uint32_t i = 0; i < plist_array_get_size(blocks); ++i) {
    plist_t entry = plist_array_get_item(blocks, i);
    std::uint64_t length = 0;
    const char* name = plist_get_string_ptr(plist_dict_get_item(entry, "Name"), nullptr);
    const char* data = plist_get_data_ptr(plist_dict_get_item(entry, "Data"), &length);
    tables.push_back({name, std::string{data, length}});
  }
  plist_free(root);
  return tables;
}

// The partition's bytes, decompressed run by run.
std::string unpack(const std::string& image, const std::string& table) {
  std::string whole;
  for (std::uint32_t i = 0; i < at<std::uint32_t>(table, 200); ++i) {
    const std::size_t run = 204 + i * std::size_t{40};
    if (at<std::uint32_t>(table, run) == 0xffffffff) break;
    EXPECT_EQ(at<std::uint32_t>(table, run), 0x80000005U);
    std::string piece(at<std::uint64_t>(table, run + 16) * 512, '\0');
    uLongf size = piece.size();
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(piece.data()), &size,
                         reinterpret_cast<const Bytef*>(image.data()) + at<std::uint64_t>(table, run + 24),
                         at<std::uint64_t>(table, run + 32)),
              Z_OK);
    EXPECT_EQ(at<std::uint64_t>(table, run + 8) * 512, whole.size());
    whole += piece;
  }
  return whole;
}

TEST_F(DiskImage, HasTheThreeTablesOfARealOne) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  const std::string image = contentOf(file);
  const auto tables = tablesOf(image);
  ASSERT_EQ(tables.size(), 3U);
  EXPECT_EQ(tables[0].name, "Driver Descriptor Map (DDM : 0)");
  EXPECT_EQ(tables[1].name, "Apple (Apple_partition_map : 1)");
  EXPECT_EQ(tables[2].name, "disk image (Apple_HFS : 2)");
  std::uint64_t sector = 0;
  for (const Table& table : tables) {
    EXPECT_EQ(table.bytes.substr(0, 4), "mish");
    EXPECT_EQ(at<std::uint64_t>(table.bytes, 8), sector) << table.name;
    sector += at<std::uint64_t>(table.bytes, 16);
  }
  EXPECT_EQ(at<std::uint64_t>(image.substr(image.size() - 512), 492), sector);
}

TEST_F(DiskImage, HasTheChecksumsOfItsBytes) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  const std::string image = contentOf(file);
  const std::string trailer = image.substr(image.size() - 512);
  EXPECT_EQ(at<std::uint32_t>(trailer, 88), crcOf(image.substr(0, at<std::uint64_t>(trailer, 32))));
  std::string checksums;
  for (const Table& table : tablesOf(image)) {
    EXPECT_EQ(at<std::uint32_t>(table.bytes, 72), crcOf(unpack(image, table.bytes))) << table.name;
    checksums += table.bytes.substr(72, 4);
  }
  EXPECT_EQ(at<std::uint32_t>(trailer, 360), crcOf(checksums));
}

TEST_F(DiskImage, HoldsAPartitionMapThatLeadsToTheVolume) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  const std::string image = contentOf(file);
  const auto tables = tablesOf(image);
  ASSERT_EQ(tables.size(), 3U);
  const std::string disk =
      unpack(image, tables[0].bytes) + unpack(image, tables[1].bytes) + unpack(image, tables[2].bytes);
  EXPECT_EQ(disk.substr(0, 2), "ER");
  EXPECT_EQ(at<std::uint32_t>(disk, 4) * 512U, disk.size());
  const std::string entry = disk.substr(1024, 512);
  EXPECT_EQ(entry.substr(0, 2), "PM");
  EXPECT_EQ(entry.substr(48, 9), "Apple_HFS");
  EXPECT_EQ(at<std::uint32_t>(entry, 8), 64U);
  EXPECT_EQ((64U + at<std::uint32_t>(entry, 12)) * 512U, disk.size());
  EXPECT_EQ(disk.substr(64 * 512 + 1024, 2), "H+");
}

TEST_F(DiskImage, IsSoundToAnIndependentReader) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  const auto tested = run({"/usr/bin/7zz", "t", file.string()});
  EXPECT_EQ(tested.status, 0) << tested.output << tested.diagnostics;
  EXPECT_THAT(tested.output, HasSubstr("Everything is Ok"));
}

TEST_F(DiskImage, OfTheSameContentHasTheSameBytes) {
  setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  const std::string first = contentOf(file);
  fs::last_write_time(folder / "source" / "big", fs::file_time_type::clock::now());
  fs::copy(folder / "source", folder / "again", fs::copy_options::recursive);
  ASSERT_TRUE(makeDiskImage(folder / "again", "Kelo Brenna", file));
  unsetenv("SOURCE_DATE_EPOCH");
  EXPECT_TRUE(contentOf(file) == first);
}

TEST_F(DiskImage, LeavesNothingBesideItself) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  EXPECT_THAT(namesIn(file.parent_path()), ElementsAre("image.dmg"));
}

TEST_F(DiskImage, IsNotMadeOfWhatWouldChangeOnTheWay) {
  struct Row {
    const char* name;
    std::vector<std::string> files;
  };
  const std::vector<Row> rows{
      {"colon", {"a:b"}},
      {"case", {"Read me", "read ME"}},
      {"composition", {"\u00e9", "e\u0301"}},
      {"deep case", {"x/y/A", "x/y/a"}},
      {"control character", {"a\nb"}},
      {"not UTF-8", {"a\xff"}},
      {"Greek with tonos", {"\u03ac"}},
      {"Thai", {"\u0e33"}},
      {"deep Kazakh", {"x/\u04d8\u04e9\u04a3/\u04d9"}},
      {"the volume's own", {".journal"}},
  };
  for (const Row& row : rows) {
    for (const std::string& name : row.files) write(std::string{row.name} + "/" + name);
    const auto made = makeDiskImage(folder / row.name, "Kelo", file);
    ASSERT_FALSE(made) << row.name;
    EXPECT_THAT(made.error(), HasSubstr("can't hold it under this name")) << row.name;
    EXPECT_THAT(namesIn(file.parent_path()), ElementsAre()) << row.name;
  }
}

TEST_F(DiskImage, NeedsAVolumeNameThatCanBeAFileName) {
  for (const std::string name :
       {"", ".", "..", ".hidden", "a/b", "a:b", "a\nb", "123456789012345678901234567890123"}) {
    EXPECT_FALSE(makeDiskImage(source(), name, file)) << name;
  }
  EXPECT_THAT(namesIn(file.parent_path()), ElementsAre());
}

TEST_F(DiskImage, HasToKeepEachOfItsChecksums) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  EXPECT_TRUE(verifyChecksums(file));
  const std::string good = contentOf(file);
  const std::size_t trailer = good.size() - 512;
  std::size_t blockSum = good.find("<data>") + 6;  // in the first table's base64, which contains blanks
  for (int digits = 0; digits <= 97; ++blockSum) digits += isgraph(good[blockSum]) != 0 ? 1 : 0;
  for (const std::size_t offset : {std::size_t{100}, trailer + 91, trailer + 363, blockSum - 1}) {
    std::string spoiled = good;
    spoiled[offset] = spoiled[offset] == 'A' ? 'B' : 'A';
    // Without the master checksum, the wrong block checksum must be found.
    if (offset == blockSum - 1) spoiled.replace(trailer + 352, 136, 136, '\0');
    EXPECT_FALSE(verifyChecksums(write("spoiled.dmg", spoiled))) << offset;
  }
}

// As "hdiutil create" makes them by default.
TEST_F(DiskImage, NeedsNoChecksums) {
  ASSERT_TRUE(makeDiskImage(source(), "Kelo Brenna", file));
  std::string image = contentOf(file);
  image.replace(image.size() - 512 + 80, 136, 136, '\0');
  image.replace(image.size() - 512 + 352, 136, 136, '\0');
  EXPECT_TRUE(verifyChecksums(write("none.dmg", image)));
}

TEST_F(DiskImage, IsNoFolderPipeOrShortFile) {
  write("short", "koly");
  EXPECT_FALSE(readTrailer(folder / "short"));
  EXPECT_FALSE(readTrailer(folder));
  EXPECT_FALSE(readTrailer(folder / "absent"));
}

}  // namespace
}  // namespace lab
