// The host's files on other kinds of volumes: a disk that loses power, an overlay as in containers. Each test
// runs in a child with its own mounts, which end with it; a test that may not mount is skipped.
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/Spawn.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {
namespace {

// The exit statuses of a child.
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
  static bool succeeds(const Path& program, const std::vector<std::string>& arguments) {
    SpawnRequest request;
    request.program = program;
    request.arguments = arguments;
    const auto child = spawn(request);
    return child && waitForExit(*child) == 0;
  }
  static bool mountsDisk(const Path& image, const Path& at) {
    return succeeds("/usr/bin/mount", {"-o", "loop", image, at});
  }
  bool hasOverlay(const Path& at) const {
    const auto options = fmt::format("lowerdir={},upperdir={},workdir={}", folder / "lower", folder / "upper",
                                     folder / "work");
    return ::mount("overlay", at.c_str(), "overlay", 0, options.c_str()) == 0;
  }
};

// A flush by any process writes the file system's journal with the new names to the disk, but not the bytes
// of other new files, which the system writes later. The disk's content after such a flush is its content
// after a loss of power at that time.
TEST_F(LinuxVolumes, ACopyIsWholeOnADiskThatLosesPowerOnceItsNameStands) {
  const std::string bytes(300'000, 'x');
  for (const char* const name : {"a", "b", "c"}) {
    folder.write(std::string{"source.app/Contents/"} + name, bytes);
  }
  const Path disk = folder.write("disk.img", "");
  const Path atTheTime = folder / "at-the-time.img";
  const Path mounted = folder.makeFolder("disk");
  const Path found = folder.makeFolder("found");
  std::filesystem::resize_file(disk, 32'000'000);

  const int ending = withOwnMounts([&] {
    if (!succeeds("/usr/sbin/mkfs.ext4", {"-q", "-F", disk}) || !mountsDisk(disk, mounted)) {
      return notPossibleHere;
    }
    if (!LinuxFileSystem{}.copyItem(folder / "source.app", mounted + "/App.app")) return bad;
    const FileDescriptor others{::open((mounted + "/others").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666)};
    if (::write(others.get(), "x", 1) != 1 || ::fsync(others.get()) != 0) return bad;
    std::filesystem::copy_file(disk, atTheTime);
    if (!mountsDisk(atTheTime, found)) return notPossibleHere;
    for (const char* const name : {"a", "b", "c"}) {
      if (textOf(found + "/App.app/Contents/" + name) != bytes) return bad;
    }
    return good;
  });
  if (ending == notPossibleHere) GTEST_SKIP() << "this machine doesn't let the suite mount a disk";
  EXPECT_EQ(ending, good);
}

// A folder of a container's image can't be renamed there.
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
