// The hidden sibling's name for an item with a long name.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/HiddenSibling.h"

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

}  // namespace
}  // namespace installer::test
