#include <gtest/gtest.h>

#include "MachO.h"
#include "MachOWriter.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

Bytes universalFile() {
  MachOPlan intel;
  intel.cpuType = 0x01000007;
  return makeUniversal({makeMachO(intel), makeMachO({})});
}

TEST(MachO, ReadsAThinFile) {
  const Bytes file = makeMachO({});
  ASSERT_TRUE(isMachO(file));
  const auto slices = readMachO(file);
  ASSERT_TRUE(slices) << slices.error().reason;
  ASSERT_EQ(slices->size(), 1U);
  EXPECT_EQ(architectureName(slices->front()), "arm64");
  EXPECT_FALSE(slices->front().signature);
}

TEST(MachO, ReadsEverySliceOfAUniversalFile) {
  const Bytes file = universalFile();
  const auto slices = readMachO(file);
  ASSERT_TRUE(slices) << slices.error().reason;
  ASSERT_EQ(slices->size(), 2U);
  EXPECT_EQ(architectureName(slices->front()), "x86_64");
  EXPECT_EQ(architectureName(slices->back()), "arm64");
}

TEST(MachO, ReadsAUniversalFileWithWideEntries) {
  const Bytes slice = makeMachO({});
  Bytes file{0xca, 0xfe, 0xba, 0xbf, 0, 0, 0, 1, 0x01, 0, 0, 0x0c, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0};
  file.resize(0x4000);
  file[30] = static_cast<std::uint8_t>(slice.size() >> 8U);
  file[31] = static_cast<std::uint8_t>(slice.size());
  file.insert(file.end(), slice.begin(), slice.end());
  const auto slices = readMachO(file);
  ASSERT_TRUE(slices) << slices.error().reason;
  EXPECT_EQ(slices->front().bytes.size(), slice.size());
}

TEST(MachO, FindsTheEmbeddedInfoPlist) {
  MachOPlan plan;
  plan.infoPlist = copyOf(viewOf("<plist/>"));
  const Bytes file = makeMachO(plan);
  const auto slices = readMachO(file);
  ASSERT_TRUE(slices);
  ASSERT_TRUE(slices->front().infoPlist);
  EXPECT_EQ(textOf(*slices->front().infoPlist), "<plist/>");
}

TEST(MachO, ObjectFilesAndArchivesArePlainFiles) {
  MachOPlan object;
  object.fileType = 1;
  EXPECT_FALSE(isMachO(makeMachO(object)));
  EXPECT_FALSE(isMachO(makeUniversal({makeMachO(object)})));
  EXPECT_FALSE(isMachO(viewOf("!<arch>\nwhatever")));
  EXPECT_FALSE(isMachO(viewOf("#!/bin/sh\n")));
  EXPECT_FALSE(isMachO({}));
}

TEST(MachO, AClassFileSharesTheMagicAndIsNone) {
  Bytes classFile{0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 52};
  classFile.resize(4000);
  EXPECT_FALSE(isMachO(classFile));
}

TEST(MachO, RefusesBytesHiddenBetweenHeaderAndSlices) {
  Bytes file = universalFile();
  file[0x1000] = 1;
  const auto read = readMachO(file);
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().reason, "universal file has bytes between its slices");
}

TEST(MachO, RefusesBytesBehindTheLastSlice) {
  Bytes file = universalFile();
  file.push_back(0);
  const auto read = readMachO(file);
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().reason, "universal file continues after its last slice");
}

TEST(MachO, RefusesATableThatNamesAnotherProcessor) {
  Bytes file = universalFile();
  file[11] = 12;  // the first entry's processor
  const auto read = readMachO(file);
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().reason, "universal header names another processor than its slice");
}

TEST(MachO, RefusesOverlappingAndOutlyingSlices) {
  Bytes overlapping = universalFile();
  std::copy_n(overlapping.begin() + 16, 4, overlapping.begin() + 36);  // the second entry's offset
  EXPECT_FALSE(readMachO(overlapping));
  Bytes outlying = universalFile();
  outlying[36] = 0x7f;
  EXPECT_FALSE(readMachO(outlying));
}

TEST(MachO, RefusesTwoSlicesForOneProcessor) {
  EXPECT_FALSE(readMachO(makeUniversal({makeMachO({}), makeMachO({})})));
}

TEST(MachO, RefusesASignatureThatIsntTheEndOfLinkEdit) {
  const Bytes plain = makeMachO({});
  Bytes file = prepareForSignature(plain, 64).value();
  file.resize(file.size() + 64);
  ASSERT_TRUE(readMachO(file));
  Bytes longer = file;
  longer.push_back(0);
  EXPECT_EQ(readMachO(longer).error().reason, "Mach-O slice continues after its code signature");
  Bytes shorterLinkEdit = file;
  const std::string name = "__LINKEDIT";
  shorterLinkEdit[find(file, viewOf(name)) + 40] ^= 1;  // low byte of the segment's size
  EXPECT_FALSE(readMachO(shorterLinkEdit));
}

TEST(MachO, RefusesMalformedLoadCommands) {
  const Bytes good = makeMachO({});
  Bytes tooMany = good;
  tooMany[18] = 0xff;
  EXPECT_FALSE(readMachO(tooMany));
  Bytes zeroSize = good;
  zeroSize[36] = zeroSize[37] = 0;
  EXPECT_FALSE(readMachO(zeroSize));
  Bytes endless = good;
  endless[23] = 0x7f;
  EXPECT_FALSE(readMachO(endless));
  for (std::size_t length = 0; length < 400; ++length)
    EXPECT_FALSE(readMachO(ByteView(good).first(length))) << length;
}

}  // namespace
}  // namespace lab
