// The leftovers of a stopped removal: by a kill, by a folder without permissions.
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/StagedRemoval.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {
namespace {

using Names = std::vector<std::string>;

class LinuxRemoval : public testing::Test {
 protected:
  LinuxTestFolder folder;
  LinuxFileSystem files;

  // Removes `name` in a process that is killed just before its first removal; returns the process identifier.
  pid_t killRemovalOf(const std::string& name) const {
    const pid_t removing = startChild([&] {
      if (!dieInSystemCall(SYS_unlinkat)) return 1;
      return LinuxFileSystem{}.removeItem(folder / name) ? 0 : 1;
    });
    EXPECT_EQ(endOf(removing), 128 + SIGSYS);
    return removing;
  }
};

TEST_F(LinuxRemoval, KilledHalfWayLeavesNothingUnderTheNameAndTheNextClearsTheRest) {
  folder.write("App.app/Contents/old", "bytes");
  const pid_t removing = killRemovalOf("App.app");
  EXPECT_EQ(sortedNames(folder.path()), Names{fmt::format(".App.app.kelo-remove-{}", removing)});
  folder.write("App.app/Contents/new", "bytes");
  ASSERT_TRUE(files.removeItem(folder / "App.app"));
  EXPECT_EQ(sortedNames(folder.path()), Names{});
}

TEST_F(LinuxRemoval, KilledHalfWayIsClearedByACopyToTheSameNameToo) {
  folder.write("App.app/Contents/old", "bytes");
  killRemovalOf("App.app");
  folder.write("new", "bytes");
  ASSERT_TRUE(files.copyItem(folder / "new", folder / "App.app"));
  EXPECT_EQ(sortedNames(folder.path()), (Names{"App.app", "new"}));
}

TEST_F(LinuxRemoval, OfWhatAnotherProcessHasTakenMeanwhileIsASuccess) {
  folder.makeFolder("tree");
  EXPECT_TRUE(removeTree(AT_FDCWD, (folder / "nothing").c_str(), TreeOwner::anyone));
  const FileDescriptor parent{::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  for (const std::string name : {"App.app", ".App.app.staged", "file"}) {
    if (name == "file") folder.write(name, "bytes");
    if (name != "file") folder.write(name + "/file", "bytes");
    EXPECT_TRUE(removeStaged(parent.get(), name, [&](const char* entry) {
      EXPECT_TRUE(removeTree(parent.get(), entry, TreeOwner::anyone));  // the other process
      errno = ENOENT;
      return false;
    }));
    EXPECT_EQ(sortedNames(folder.path()), Names{"tree"});
  }
}

TEST_F(LinuxRemoval, ThatFailsHalfWayLeavesNothingUnderTheNameAndTheNextClearsTheRest) {
  folder.write("App.app/Contents/Info.plist", "bytes");
  folder.write("App.app/Contents/MacOS/app", "bytes");
  const FileDescriptor parent{::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  EXPECT_FALSE(removeStaged(parent.get(), "App.app", [&](const std::string& entry) {
    EXPECT_EQ(::unlink((folder / entry + "/Contents/Info.plist").c_str()), 0);
    errno = EIO;
    return false;
  }));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(sortedNames(folder.path()), Names{fmt::format(".App.app.kelo-remove-{}", ::getpid())});
  EXPECT_TRUE(files.clearLeftovers(folder / "App.app"));
  EXPECT_EQ(sortedNames(folder.path()), Names{});
}

TEST_F(LinuxRemoval, ThatFailsBeforeAnythingIsTakenLeavesAllUnderTheName) {
  folder.write("App.app/Contents/MacOS/app", "bytes");
  folder.makeFolder("App.app/Contents/empty");
  const FileDescriptor parent{::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  EXPECT_FALSE(removeStaged(parent.get(), "App.app", [](const char* /*entry*/) {
    errno = EPERM;
    return false;
  }));
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(sortedNames(folder.path()), Names{"App.app"});
  EXPECT_EQ(textOf(folder / "App.app/Contents/MacOS/app"), "bytes");
}

TEST_F(LinuxRemoval, OfAHiddenFolderKilledHalfWayLeavesTheRestUnderItsName) {
  folder.write(".App.app.staged/Contents/old", "bytes");
  killRemovalOf(".App.app.staged");
  EXPECT_EQ(sortedNames(folder.path()), Names{".App.app.staged"});
  ASSERT_TRUE(files.removeItem(folder / ".App.app.staged"));
  EXPECT_EQ(sortedNames(folder.path()), Names{});
}

// Files of the user are beside the closed folder; a removal without a check would remove them.
TEST_F(LinuxRemoval, ThatAClosedFolderWouldStopTakesNothing) {
  for (const std::string name : {"App.app", ".App.app.staged"}) {
    for (int number = 0; number < 40; ++number) {
      folder.write(fmt::format("{}/a/{}", name, number), "bytes");
      folder.write(fmt::format("{}/{}", name, number), "bytes");
    }
    folder.write(name + "/closed/deep/file", "bytes");
    ASSERT_EQ(::chmod((folder / name + "/closed").c_str(), 0555), 0);
    for (const std::string open : {"", "/a", "/closed/deep"}) {
      ASSERT_EQ(::chmod((folder / name + open).c_str(), 0777), 0);
    }
    EXPECT_EQ(withoutRights([&] {
                const auto removed = LinuxFileSystem{}.removeItem(folder / name);
                return removed ? 1 : removed.error().is(ErrorDomain::cocoa, 513) ? 0 : 2;
              }),
              0);
    EXPECT_EQ(sortedNames(folder / name).size(), 42U);
    EXPECT_EQ(sortedNames(folder / name + "/a").size(), 40U);
    EXPECT_EQ(textOf(folder / name + "/closed/deep/file"), "bytes");
  }
}

TEST_F(LinuxRemoval, FromAClosedFolderTakesNothingOfAHiddenFolderEither) {
  for (const std::string name : {"App.app", ".App.app.staged"}) {
    folder.write("closed/" + name + "/file", "bytes");
    ASSERT_EQ(::chmod((folder / "closed/" + name).c_str(), 0777), 0);
  }
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0555), 0);
  for (const std::string name : {"App.app", ".App.app.staged"}) {
    EXPECT_EQ(withoutRights([&] {
                const auto removed = LinuxFileSystem{}.removeItem(folder / "closed/" + name);
                return removed ? 1 : removed.error().is(ErrorDomain::cocoa, 513) ? 0 : 2;
              }),
              0);
    EXPECT_EQ(textOf(folder / "closed/" + name + "/file"), "bytes");
  }
}

TEST_F(LinuxRemoval, IsNotStoppedByAClosedFolderWithNothingInIt) {
  folder.write("App.app/file", "bytes");
  folder.makeFolder("App.app/closed");
  ASSERT_EQ(::chmod((folder / "App.app/closed").c_str(), 0555), 0);
  ASSERT_EQ(::chmod((folder / "App.app").c_str(), 0777), 0);
  EXPECT_EQ(withoutRights([&] { return LinuxFileSystem{}.removeItem(folder / "App.app") ? 0 : 1; }), 0);
  EXPECT_EQ(sortedNames(folder.path()), Names{});
}

TEST_F(LinuxRemoval, LooksBehindNoLinkForWhatWouldStopIt) {
  folder.write("closed/file", "bytes");
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0555), 0);
  folder.makeFolder("App.app");
  ASSERT_EQ(::symlink("../closed", (folder / "App.app/link").c_str()), 0);
  ASSERT_EQ(::chmod((folder / "App.app").c_str(), 0777), 0);
  EXPECT_EQ(withoutRights([&] { return LinuxFileSystem{}.removeItem(folder / "App.app") ? 0 : 1; }), 0);
  EXPECT_EQ(textOf(folder / "closed/file"), "bytes");
}

}  // namespace
}  // namespace installer::test
