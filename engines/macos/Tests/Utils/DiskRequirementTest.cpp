#include <cstdint>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/DiskRequirement.h"

namespace installer {
namespace {

class DiskFigures : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;
  const Path bundle = "/Applications/Kelo Rulo.app";

  static std::int64_t peak(double ratio, std::int64_t download, const std::optional<Path>& existing = {}) {
    AppInfo app;
    app.expansionRatio = ratio;
    return DiskRequirement::peakBytes(app, download, existing);
  }
  void addFile(const std::string& name, std::int64_t allocated) {
    mac.files.addFile(joined(bundle, name), "x");
    mac.files.setAllocatedSize(joined(bundle, name), allocated);
  }
};

TEST_F(DiskFigures, CountImageAndExpandedBundleTogether) {
  EXPECT_EQ(peak(2.0, 100), 300);
  EXPECT_EQ(peak(1.5, 3), 7);  // 4.5 is cut to 4
  EXPECT_EQ(peak(1.85, 279172874), 279172874 + 516469816);
  EXPECT_EQ(peak(2.0, 0), 0);
}

TEST_F(DiskFigures, TakeOffWhatTheOldCopyOccupies) {
  addFile("Contents/big", 150);
  EXPECT_EQ(peak(2.0, 100, bundle), 150);
}

TEST_F(DiskFigures, NeverFallBelowTheDownload) {
  addFile("Contents/big", 100'000);
  EXPECT_EQ(peak(2.0, 100, bundle), 100);
}

TEST_F(DiskFigures, TakeNothingOffForAMissingCopy) {
  EXPECT_EQ(peak(2.0, 100, "/Applications/Missing.app"), 300);
}

TEST_F(DiskFigures, OfAbsurdMetadataAreTheGreatestThereIs) {
  EXPECT_EQ(peak(2.6, INT64_MAX), INT64_MAX);
  EXPECT_EQ(peak(1.0, INT64_MAX / 2 + 1), INT64_MAX);
}

TEST_F(DiskFigures, OfADirectoryAreAbsentWhenThereIsNone) {
  EXPECT_EQ(DiskRequirement::directorySize("/Applications/Missing.app"), std::nullopt);
  mac.files.addFile("/Applications/file", "x");
  EXPECT_EQ(DiskRequirement::directorySize("/Applications/file"), std::nullopt);
}

TEST_F(DiskFigures, OfADirectoryThatCannotBeOpenedAreAbsent) {
  mac.files.addDirectory(bundle);
  mac.files.setReadable(bundle, false);
  EXPECT_EQ(DiskRequirement::directorySize(bundle), std::nullopt);
}

TEST_F(DiskFigures, OfAnEmptyDirectoryAreZero) {
  mac.files.addDirectory(bundle);
  EXPECT_EQ(DiskRequirement::directorySize(bundle), 0);
}

TEST_F(DiskFigures, CountAllocatedBytesOfRegularFilesOnly) {
  addFile("Contents/a", 4096);
  addFile("Contents/Resources/b", 8192);
  mac.files.addDirectory(joined(bundle, "Contents/Empty"));
  EXPECT_EQ(DiskRequirement::directorySize(bundle), 12288);
}

TEST_F(DiskFigures, LeaveOutLinksAndHiddenFilesAndAllBelowHiddenDirectories) {
  addFile("Contents/a", 4096);
  addFile("Contents/.hidden", 100);
  addFile("Contents/.folder/deep/visible", 100);
  mac.files.addFile("/big", std::string(100'000, 'x'));
  mac.files.addSymlink(joined(bundle, "Contents/link"), "/big");
  mac.files.addSymlink(joined(bundle, "Contents/self"), bundle);
  EXPECT_EQ(DiskRequirement::directorySize(bundle), 4096);
}

TEST_F(DiskFigures, TakeAnUnknownFileForNothing) {
  addFile("Contents/a", 4096);
  addFile("Contents/b", 1);
  mac.files.setAllocatedSizeUnknown(joined(bundle, "Contents/b"));
  EXPECT_EQ(DiskRequirement::directorySize(bundle), 4096);
}

}  // namespace
}  // namespace installer
