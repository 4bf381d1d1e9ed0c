// Tests for the Linux host's files only: kills, links, permission bits, other users.
#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

#include "Base/POSIX/FileTree.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {
namespace {

using Names = std::vector<std::string>;

class LinuxFiles : public testing::Test {
 protected:
  LinuxTestFolder folder;
  LinuxFileSystem files;

  static bool isCocoa(const Result<>& result, std::int64_t code) {
    return !result && result.error().is(ErrorDomain::cocoa, code);
  }
  static struct stat statusOf(const Path& path) {
    struct stat status{};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
  }
};

TEST_F(LinuxFiles, ACopyKilledHalfWayLeavesNothingUnderTheNameAndIsClearedByTheNext) {
  for (const char* const name : {"a", "b", "c"}) {
    folder.write(fmt::format("source.app/Contents/{}", name), "bytes");
  }
  folder.makeFolder("Applications");
  const pid_t copying = startChild([&] {
    if (!dieInSystemCall(SYS_fchmod)) return 1;  // after the bytes of the first file
    return LinuxFileSystem{}.copyItem(folder / "source.app", folder / "Applications/App.app") ? 0 : 1;
  });
  ASSERT_EQ(endOf(copying), 128 + SIGSYS);

  const std::string half = fmt::format(".App.app.kelo-copy-{}", copying);
  EXPECT_EQ(sortedNames(folder / "Applications"), Names{half});
  EXPECT_EQ(sortedNames(folder / ("Applications/" + half + "/Contents")).size(), 1U);
  ASSERT_TRUE(files.copyItem(folder / "source.app", folder / "Applications/App.app"));
  EXPECT_EQ(sortedNames(folder / "Applications"), (Names{"App.app"}));
  EXPECT_EQ(sortedNames(folder / "Applications/App.app/Contents"), (Names{"a", "b", "c"}));
}

TEST_F(LinuxFiles, AFolderTooDeepToBeMadeIsRefused) {
  Path deep = folder / "a";
  for (int level = 0; level < 60'000; ++level) deep += "/a";
  const auto made = files.createDirectory(deep, FileSystem::Intermediates::create);
  ASSERT_FALSE(made);
  EXPECT_TRUE(made.error().is(ErrorDomain::posix, ENAMETOOLONG)) << made.error().code;
  EXPECT_EQ(sortedNames(folder / ""), Names{});
}

TEST_F(LinuxFiles, ACopyInAnotherLivingProcessIsNotClearedAway) {
  folder.write("source", "bytes");
  const std::string others = fmt::format(".copy.kelo-copy-{}", ::getppid());
  folder.write(others, "half");
  ASSERT_TRUE(files.copyItem(folder / "source", folder / "copy"));
  EXPECT_EQ(sortedNames(folder.path()), (Names{others, "copy", "source"}));
}

TEST_F(LinuxFiles, ALeftoverUnderOurOwnProcessNumberIsCleared) {
  folder.write("source", "bytes");
  folder.write(fmt::format(".copy.kelo-copy-{}/inside", ::getpid()), "from before the last start");
  ASSERT_TRUE(files.copyItem(folder / "source", folder / "copy"));
  EXPECT_EQ(sortedNames(folder.path()), (Names{"copy", "source"}));
}

TEST_F(LinuxFiles, AFolderWithTheStickyBitIsAHiddenVolume) {
  folder.write("volume/file", "bytes");
  ASSERT_EQ(::chmod((folder / "volume").c_str(), S_ISVTX | 0555), 0);
  EXPECT_TRUE(files.isHiddenVolume(folder / "volume"));
}

TEST_F(LinuxFiles, OfTwoCopiesToOneNameOneWinsAndTheOtherLeavesNothing) {
  folder.write("source.app/file", "bytes");
  Result<> first;
  Result<> second;
  std::thread other{[&] { first = files.copyItem(folder / "source.app", folder / "App.app"); }};
  second = files.copyItem(folder / "source.app", folder / "App.app");
  other.join();
  EXPECT_NE(first.has_value(), second.has_value());
  EXPECT_TRUE(isCocoa(first ? second : first, CocoaError::fileWriteFileExists));
  EXPECT_EQ(sortedNames(folder.path()), (Names{"App.app", "source.app"}));
  EXPECT_EQ(textOf(folder / "App.app/file"), "bytes");
}

TEST_F(LinuxFiles, ACopyKeepsLinksModesAndTimes) {
  folder.write("source.app/run", "#!/bin/sh\n");
  folder.makeFolder("source.app/closed");
  ASSERT_EQ(::symlink("/etc", (folder / "source.app/outside").c_str()), 0);
  ASSERT_EQ(::chmod((folder / "source.app/closed").c_str(), 0555), 0);
  const timespec times[2] = {{1000000000, 0}, {1000000000, 5}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "source.app/run").c_str(), times, 0), 0);

  ASSERT_TRUE(files.copyItem(folder / "source.app", folder / "copy.app"));

  EXPECT_EQ(std::filesystem::read_symlink(folder / "copy.app/outside"), "/etc");
  EXPECT_EQ(statusOf(folder / "copy.app/closed").st_mode & ALLPERMS, 0555U);
  EXPECT_EQ(statusOf(folder / "copy.app/run").st_mode & ALLPERMS, 0755U);
  EXPECT_EQ(statusOf(folder / "copy.app/run").st_mtim.tv_sec, 1000000000);
  EXPECT_EQ(statusOf(folder / "copy.app/run").st_mtim.tv_nsec, 5);
}

TEST_F(LinuxFiles, ACopyKeepsExtendedAttributes) {
  const Path source = folder.write("source", "bytes");
  if (::setxattr(source.c_str(), "user.com.apple.quarantine", "0081", 4, 0) != 0) {
    GTEST_SKIP() << "the volume of the temporary directory takes no attributes";
  }
  ASSERT_TRUE(files.copyItem(source, folder / "copy"));
  std::array<char, 16> value{};
  EXPECT_EQ(::getxattr((folder / "copy").c_str(), "user.com.apple.quarantine", value.data(), value.size()),
            4);
  EXPECT_STREQ(value.data(), "0081");
}

TEST_F(LinuxFiles, ACopyLendsOutNobodysRights) {
  const Path source = folder.write("source", "bytes");
  ASSERT_EQ(::chmod(source.c_str(), 06755), 0);
  ASSERT_TRUE(files.copyItem(source, folder / "copy"));
  EXPECT_EQ(statusOf(folder / "copy").st_mode & ALLPERMS, 0755U);
}

TEST_F(LinuxFiles, ALargeFileArrivesWhole) {
  std::string bytes(9UL * 1024 * 1024 + 7, '\0');
  for (std::size_t at = 0; at < bytes.size(); ++at) bytes[at] = static_cast<char>(at * 31 % 251);
  folder.write("source", bytes);
  ASSERT_TRUE(files.copyItem(folder / "source", folder / "copy"));
  EXPECT_TRUE(textOf(folder / "copy") == bytes);
}

TEST_F(LinuxFiles, APipeInATreeIsRefusedAndNothingIsLeft) {
  folder.write("source.app/a", "bytes");
  ASSERT_EQ(::mkfifo((folder / "source.app/pipe").c_str(), 0666), 0);
  const auto copied = files.copyItem(folder / "source.app", folder / "copy.app");
  ASSERT_FALSE(copied);
  EXPECT_TRUE(copied.error().is(ErrorDomain::posix, ENOTSUP));
  EXPECT_EQ(sortedNames(folder.path()), (Names{"source.app"}));
}

TEST_F(LinuxFiles, ATreeIsNotCopiedIntoItself) {
  folder.write("source/file", "bytes");
  EXPECT_FALSE(files.copyItem(folder / "source", folder / "source/inner"));
  EXPECT_EQ(sortedNames(folder / "source"), (Names{"file"}));
}

TEST_F(LinuxFiles, ACopyWithoutRightsIs513AndLeavesNothing) {
  folder.write("source/file", "bytes");
  folder.makeFolder("closed");
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0555), 0);
  EXPECT_EQ(withoutRights([&] {
              return isCocoa(LinuxFileSystem{}.copyItem(folder / "source", folder / "closed/copy"),
                             CocoaError::fileWriteNoPermission)
                         ? 0
                         : 1;
            }),
            0);
  EXPECT_EQ(sortedNames(folder / "closed"), Names{});
}

TEST_F(LinuxFiles, AnUnreadableFileStopsTheCopyWith257AndReadOnlyFoldersOfTheStagingDoNotStay) {
  folder.write("source/a/file", "bytes");
  folder.write("source/b", "secret");
  ASSERT_EQ(::chmod((folder / "source/a").c_str(), 0555), 0);
  ASSERT_EQ(::chmod((folder / "source/b").c_str(), 0), 0);
  EXPECT_EQ(withoutRights([&] {
              return isCocoa(LinuxFileSystem{}.copyItem(folder / "source", folder / "copy"),
                             CocoaError::fileReadNoPermission)
                         ? 0
                         : 1;
            }),
            0);
  EXPECT_EQ(sortedNames(folder.path()), (Names{"source"}));
}

TEST_F(LinuxFiles, AMoveNeverReplacesAnEmptyFolderEither) {
  folder.write("source.app/file", "bytes");
  folder.makeFolder("App.app");
  EXPECT_TRUE(
      isCocoa(files.moveItem(folder / "source.app", folder / "App.app"), CocoaError::fileWriteFileExists));
  EXPECT_EQ(sortedNames(folder.path()), (Names{"App.app", "source.app"}));
}

TEST_F(LinuxFiles, AMoveToAnotherVolumeCopiesAndRemoves) {
  struct stat here{};
  struct stat there{};
  ASSERT_EQ(::stat(folder.path().c_str(), &here), 0);
  if (::stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev || ::access("/dev/shm", W_OK) != 0) {
    GTEST_SKIP() << "there is no second volume to move to";
  }
  folder.write("source.app/file", "bytes");
  const Path target = fmt::format("/dev/shm/kelo-host-{}.app", ::getpid());
  ASSERT_TRUE(files.moveItem(folder / "source.app", target));
  EXPECT_EQ(textOf(target + "/file"), "bytes");
  EXPECT_EQ(sortedNames(folder.path()), Names{});
  EXPECT_TRUE(files.removeItem(target));
}

TEST_F(LinuxFiles, RemovingALinkLeavesItsTargetAlsoWithATrailingSlash) {
  folder.write("kept/file", "bytes");
  for (const std::string slash : {"", "/"}) {
    ASSERT_EQ(::symlink("kept", (folder / "link").c_str()), 0);
    ASSERT_TRUE(files.removeItem(folder / "link" + slash));
    EXPECT_EQ(sortedNames(folder.path()), (Names{"kept"}));
  }
  folder.makeFolder("tree");
  ASSERT_EQ(::symlink("../kept", (folder / "tree/link").c_str()), 0);
  ASSERT_TRUE(files.removeItem(folder / "tree"));
  EXPECT_EQ(textOf(folder / "kept/file"), "bytes");
}

TEST_F(LinuxFiles, RemovingWithoutRightsIs513AndNamesTheItem) {
  folder.write("closed/file", "bytes");
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0555), 0);
  EXPECT_EQ(withoutRights([&] {
              const auto removed = LinuxFileSystem{}.removeItem(folder / "closed/file");
              if (!isCocoa(removed, CocoaError::fileWriteNoPermission)) return 1;
              return removed.error().localizedDescription ==
                             fmt::format(
                                 "“file” couldn’t be removed: Permission denied (NSCocoaErrorDomain 513, {})",
                                 folder / "closed/file")
                         ? 0
                         : 2;
            }),
            0);
}

TEST_F(LinuxFiles, AnUnreadableFolderIsReportedAndPassedOver) {
  folder.write("top/closed/inside", "bytes");
  folder.write("top/open/inside", "bytes");
  ASSERT_EQ(::chmod((folder / "top/closed").c_str(), 0), 0);
  EXPECT_EQ(withoutRights([&] {
              int visited = 0;
              Names reported;
              const bool opened = LinuxFileSystem{}.enumerate(
                  folder / "top", HiddenEntries::visit,
                  [&](const DirectoryEntry&) {
                    ++visited;
                    return Descend::yes;
                  },
                  [&](const Path& path, const Error& error) {
                    if (error.is(ErrorDomain::cocoa, CocoaError::fileReadNoPermission)) {
                      reported.push_back(path);
                    }
                  });
              return opened && visited == 3 && reported == Names{folder / "top/closed"} ? 0 : 1;
            }),
            0);
}

TEST_F(LinuxFiles, AWriteReplacesALinkInsteadOfFollowingIt) {
  folder.write("precious", "kept");
  ASSERT_EQ(::symlink("precious", (folder / "file").c_str()), 0);
  ASSERT_TRUE(files.writeFile(folder / "file", "new"));
  EXPECT_EQ(textOf(folder / "precious"), "kept");
  EXPECT_EQ(textOf(folder / "file"), "new");
  EXPECT_EQ(sortedNames(folder.path()), (Names{"file", "precious"}));
}

TEST_F(LinuxFiles, AWriteThatFailsLeavesNothingBeside) {
  folder.makeFolder("file/full");
  EXPECT_FALSE(files.writeFile(folder / "file", "new"));
  EXPECT_EQ(sortedNames(folder.path()), (Names{"file"}));
}

TEST_F(LinuxFiles, APipeUnderAFilesNameHoldsNobodyUp) {
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0666), 0);
  EXPECT_FALSE(files.readFile(folder / "pipe"));
  EXPECT_FALSE(files.openForReading(folder / "pipe"));
  EXPECT_FALSE(files.openForAppending(folder / "pipe"));
}

TEST_F(LinuxFiles, APathWithANULIsNoPath) {
  folder.write("file", "bytes");
  const Path cut = (folder / "file") + std::string{"\0.app", 5};
  EXPECT_FALSE(files.fileExists(cut));
  EXPECT_FALSE(files.isWritable(cut));
  EXPECT_FALSE(files.removeItem(cut));
  EXPECT_FALSE(files.copyItem(cut, folder / "copy"));
  EXPECT_FALSE(files.moveItem(folder / "file", folder / std::string{"a\0b", 3}));
  EXPECT_FALSE(files.writeFile(cut, "new"));
  EXPECT_EQ(textOf(folder / "file"), "bytes");
  EXPECT_EQ(sortedNames(folder.path()), (Names{"file"}));
}

TEST_F(LinuxFiles, ATreeAsDeepAsAllowedIsWalkedWith256Descriptors) {
  std::string deep = "deep";
  for (int depth = 1; depth < kDeepestFolder; ++depth) deep += "/d";
  folder.makeFolder(deep);
  const int status = inChild([&] {
    const rlimit usual{256, 256};
    if (::setrlimit(RLIMIT_NOFILE, &usual) != 0) return 2;
    if (!files.copyItem(folder / "deep", folder / "copy")) return 3;
    return files.removeItem(folder / "deep") ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(LinuxFiles, CountAsLockedWhenTheProcessHasNoDescriptorLeft) {
  const int status = inChild([&] {
    // Once before: the sanitizer needs descriptors for its first look at an object.
    const auto tried = [&] { return files.tryLock(folder.path()); };
    if (!tried()) return 4;
    const rlimit none{0, 256};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return 2;
    const auto lock = tried();
    return lock && *lock == nullptr ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(LinuxFiles, ATreeThatIsTooDeepIsRefusedAndNothingIsLeft) {
  std::string deep = "deep";
  for (int depth = 0; depth < 300; ++depth) deep += "/d";
  folder.makeFolder(deep);
  const auto copied = files.copyItem(folder / "deep", folder / "copy");
  ASSERT_FALSE(copied);
  EXPECT_TRUE(copied.error().is(ErrorDomain::posix, ENAMETOOLONG)) << copied.error().localizedDescription;
  EXPECT_EQ(sortedNames(folder.path()), (Names{"deep"}));
  const auto removed = files.removeItem(folder / "deep");
  ASSERT_FALSE(removed);
  EXPECT_TRUE(removed.error().is(ErrorDomain::posix, ENAMETOOLONG)) << removed.error().localizedDescription;
}

}  // namespace
}  // namespace installer::test
