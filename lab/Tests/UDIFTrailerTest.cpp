#include <functional>

#include "Support.h"
#include "support/UDIFTrailer.h"

namespace lab {
namespace {

UDIFTrailer sample() {
  UDIFTrailer trailer;
  trailer.dataForkLength = 1000;
  trailer.dataChecksum = 0x01020304;
  trailer.plistOffset = 1000;
  trailer.plistLength = 200;
  trailer.signatureOffset = 1200;
  trailer.signatureLength = 100;
  trailer.masterChecksum = 0xa1a2a3a4;
  trailer.sectorCount = 77;
  trailer.segmentID.fill(9);
  return trailer;
}

constexpr std::uint64_t kSampleFileSize = 1300 + 512;

TEST(UDIFTrailer, StandsWhereTheFormatSays) {
  const auto block = sample().bytes();
  const auto word = [&](std::size_t at) { return loadBig<std::uint32_t>(block.data() + at); };
  const auto doubleWord = [&](std::size_t at) { return loadBig<std::uint64_t>(block.data() + at); };
  EXPECT_EQ((std::string{block.begin(), block.begin() + 4}), "koly");
  EXPECT_EQ(word(4), 4U);
  EXPECT_EQ(word(8), 512U);
  EXPECT_EQ(doubleWord(24), 0U);
  EXPECT_EQ(doubleWord(32), 1000U);
  EXPECT_EQ(word(80), 2U);
  EXPECT_EQ(word(84), 32U);
  EXPECT_EQ(word(88), 0x01020304U);
  EXPECT_EQ(doubleWord(216), 1000U);
  EXPECT_EQ(doubleWord(224), 200U);
  EXPECT_EQ(doubleWord(296), 1200U);
  EXPECT_EQ(doubleWord(304), 100U);
  EXPECT_EQ(word(352), 2U);
  EXPECT_EQ(word(360), 0xa1a2a3a4U);
  EXPECT_EQ(doubleWord(492), 77U);
}

TEST(UDIFTrailer, IsReadAsItWasWritten) {
  const auto parsed = UDIFTrailer::parse(sample().bytes(), kSampleFileSize);
  ASSERT_TRUE(parsed) << parsed.error();
  EXPECT_EQ(parsed->bytes(), sample().bytes());
}

TEST(UDIFTrailer, RefusesWhatIsNone) {
  using Block = UDIFTrailer::Block;
  struct Row {
    const char* name;
    std::function<void(Block&)> spoil;
  };
  const std::vector<Row> rows{
      {"no magic", [](Block& block) { block[0] = 'K'; }},
      {"another version", [](Block& block) { block[7] = 5; }},
      {"another size", [](Block& block) { block[10] = 1; }},
      {"data beyond the file", [](Block& block) { storeBig<std::uint64_t>(block.data() + 32, 1301); }},
      {"list beyond the file", [](Block& block) { storeBig<std::uint64_t>(block.data() + 216, 1101); }},
      {"signature beyond the file", [](Block& block) { storeBig<std::uint64_t>(block.data() + 304, 101); }},
      {"an offset that wraps",
       [](Block& block) { storeBig<std::uint64_t>(block.data() + 216, UINT64_MAX - 10); }},
      {"no list", [](Block& block) { storeBig<std::uint64_t>(block.data() + 224, 0); }},
  };
  for (const Row& row : rows) {
    auto block = sample().bytes();
    row.spoil(block);
    EXPECT_FALSE(UDIFTrailer::parse(block, kSampleFileSize)) << row.name;
  }
  EXPECT_FALSE(UDIFTrailer::parse(sample().bytes(), 511));
}

}  // namespace
}  // namespace lab
