// The hidden sibling's name for an item with a long name.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/POSIX/ItemLock.h"
#include "Base/POSIX/WholeFile.h"

namespace installer::test {
namespace {

std::string siblingOf(const std::string& name) {
  const FileDescriptor folder{::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  return HiddenSibling{folder.get(), name, "kelo-copy"}.name();
}

// A volume may refuse a name that isn't UTF-8.
TEST(HiddenSibling, CutsALongNameBetweenItsCharacters) {
  for (std::size_t before = 190; before < 210; ++before) {
    const auto name = siblingOf(std::string(before, 'a') + "üüüüüüüüüüüüüüüüüüüü");
    EXPECT_LE(name.size(), 255U) << before;
    EXPECT_NO_THROW((void)nlohmann::json(name).dump()) << before;
  }
}

TEST(HiddenSibling, KeepsAShortNameWhole) {
  EXPECT_TRUE(siblingOf("Kelo Tolvi.app").starts_with(".Kelo Tolvi.app.kelo-copy-"));
}

class FolderWithLeftovers : public ::testing::Test {
 protected:
  Path folder = ::testing::TempDir() + "kelo-siblings-XXXXXX";

  void SetUp() override { ASSERT_NE(::mkdtemp(folder.data()), nullptr); }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // A leftover under an identifier that a living process has: the first one's.
  Path lay(const std::string& purpose) {
    auto path = joined(folder, ".app." + purpose + "-1");
    EXPECT_TRUE(replaceFile(path, "bytes"));
    return path;
  }
  bool clear() {
    const FileDescriptor open{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    return clearLeftovers(open.get(), "app");
  }
};

TEST_F(FolderWithLeftovers, IsClearedOfALivingProcesssNamesOnlyByTheHolderOfItsLock) {
  for (const char* const purpose : {kCopyPurpose, kRemovalPurpose, kWritePurpose}) {
    const auto left = lay(purpose);
    EXPECT_FALSE(clear()) << purpose;
    EXPECT_TRUE(std::filesystem::exists(left)) << purpose;
    {
      const auto lock = ItemLock::tryTake(folder);
      ASSERT_TRUE(lock);
      EXPECT_TRUE(clear()) << purpose;
    }
    EXPECT_FALSE(std::filesystem::exists(left)) << purpose;
    (void)lay(purpose);
    EXPECT_FALSE(clear()) << purpose;
    std::filesystem::remove(left);
  }
}

TEST_F(FolderWithLeftovers, KeepsTheNamesOfItsOwnProcessUnderItsLock) {
  const auto lock = ItemLock::tryTake(folder);
  const FileDescriptor open{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  const HiddenSibling ours{open.get(), "app", kCopyPurpose};
  ASSERT_TRUE(replaceFile(joined(folder, ours.name()), "bytes"));
  EXPECT_FALSE(clear());
  EXPECT_TRUE(std::filesystem::exists(joined(folder, ours.name())));
}

TEST_F(FolderWithLeftovers, IsClearedOfAKilledWriteByTheNextOne) {
  const auto left = joined(folder, ".app.kelo-write-999999999");
  ASSERT_TRUE(replaceFile(left, "half"));
  ASSERT_TRUE(replaceFile(joined(folder, "app"), "whole"));
  EXPECT_FALSE(std::filesystem::exists(left));
}

}  // namespace
}  // namespace installer::test
