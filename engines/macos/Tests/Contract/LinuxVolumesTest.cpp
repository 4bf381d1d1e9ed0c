// What volumes of other kinds do to the host's files: an overlay as containers have it. Each runs in a child
// with mounts of its own, which end with it; where a test may not mount, it is skipped.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxFileSystem.h"

namespace installer::test {
namespace {

// What a child's exit status means here.
enum Ending { good = 0, bad = 1, notPossibleHere = 77 };

class LinuxVolumes : public testing::Test {
 protected:
  LinuxTestFolder folder;

  static int withOwnMounts(const std::function<Ending()>& body) {
    return inChild([&] {
      const bool apart =
          ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
      return apart ? body() : notPossibleHere;
    });
  }
  bool hasOverlay(const Path& at) const {
    const auto options = fmt::format("lowerdir={},upperdir={},workdir={}", folder / "lower", folder / "upper",
                                     folder / "work");
    return ::mount("overlay", at.c_str(), "overlay", 0, options.c_str()) == 0;
  }
};

// A folder that came with a container's image can't be renamed there.
TEST_F(LinuxVolumes, AFolderOfAnOverlaysLowerLayerIsRemovedWhereItStands) {
  folder.write("lower/App.app/Contents/file", "bytes");
  for (const char* const name : {"upper", "work", "merged"}) folder.makeFolder(name);
  const Path merged = folder / "merged";
  const int ending = withOwnMounts([&] {
    if (!hasOverlay(merged)) return notPossibleHere;
    const auto removed = LinuxFileSystem{}.removeItem(merged + "/App.app");
    return removed && sortedNames(merged).empty() ? good : bad;
  });
  if (ending == notPossibleHere) GTEST_SKIP() << "this machine doesn't let the suite mount an overlay";
  EXPECT_EQ(ending, good);
}

TEST_F(LinuxVolumes, AFolderOfAnOverlaysLowerLayerIsMovedWhole) {
  folder.write("lower/App.app/Contents/file", "bytes");
  for (const char* const name : {"upper", "work", "merged"}) folder.makeFolder(name);
  const Path merged = folder / "merged";
  const int ending = withOwnMounts([&] {
    if (!hasOverlay(merged)) return notPossibleHere;
    const auto moved = LinuxFileSystem{}.moveItem(merged + "/App.app", merged + "/.App.app.staged");
    const bool isWhole = textOf(merged + "/.App.app.staged/Contents/file") == "bytes";
    return moved && isWhole && sortedNames(merged).size() == 1 ? good : bad;
  });
  if (ending == notPossibleHere) GTEST_SKIP() << "this machine doesn't let the suite mount an overlay";
  EXPECT_EQ(ending, good);
}

}  // namespace
}  // namespace installer::test
