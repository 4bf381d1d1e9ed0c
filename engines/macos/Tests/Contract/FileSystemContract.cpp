// The contract of file systems.
#include <algorithm>

#include "Contract/MachineUnderTest.h"
#include "Platform/FileSystem.h"

namespace installer::test {
namespace {

class FileSystemContract : public Contract {
 protected:
  static constexpr auto kMissing = "NSCocoaErrorDomain 4";
  static constexpr auto kUnreadable = "NSCocoaErrorDomain 257";
  static constexpr auto kNothingToRead = "NSCocoaErrorDomain 260";
  static constexpr auto kNotPermitted = "NSCocoaErrorDomain 513";
  static constexpr auto kExists = "NSCocoaErrorDomain 516";
};

TEST_P(FileSystemContract, TellsFilesFromDirectoriesFromNothing) {
  lay("file");
  layFolder("folder");
  EXPECT_TRUE(files.fileExists(at("file")));
  EXPECT_FALSE(files.directoryExists(at("file")));
  EXPECT_TRUE(files.fileExists(at("folder")));
  EXPECT_TRUE(files.directoryExists(at("folder")));
  EXPECT_FALSE(files.fileExists(at("nothing")));
  EXPECT_FALSE(files.directoryExists(at("nothing")));
  EXPECT_FALSE(files.fileExists(at("file/below")));
}

TEST_P(FileSystemContract, FollowsLinksWhenItLooks) {
  lay("folder/file");
  under->makeLink(at("toFile"), "folder/file");
  under->makeLink(at("toFolder"), at("folder"));
  under->makeLink(at("dangling"), "nowhere");
  EXPECT_TRUE(files.fileExists(at("toFile")));
  EXPECT_TRUE(files.directoryExists(at("toFolder")));
  EXPECT_TRUE(files.fileExists(at("toFolder/file")));
  EXPECT_FALSE(files.fileExists(at("dangling")));
}

TEST_P(FileSystemContract, EndsLinksInACircleNowhere) {
  under->makeLink(at("a"), "b");
  under->makeLink(at("b"), "a");
  EXPECT_FALSE(files.fileExists(at("a")));
  EXPECT_FALSE(files.readFile(at("a")));
}

TEST_P(FileSystemContract, ListsNamesWithoutDots) {
  lay("folder/b");
  lay("folder/.hidden");
  lay("folder/c/below");
  auto names = files.contentsOfDirectory(at("folder"));
  ASSERT_TRUE(names);
  std::ranges::sort(*names);
  EXPECT_EQ(*names, (Lines{".hidden", "b", "c"}));
  EXPECT_EQ(files.contentsOfDirectory(layFolder("empty")).value(), Lines{});
}

TEST_P(FileSystemContract, FailsToListWhatIsNoDirectory) {
  EXPECT_EQ(outcomeOf(files.contentsOfDirectory(at("nothing"))), kNothingToRead);
  EXPECT_FALSE(files.contentsOfDirectory(lay("file")));
}

TEST_P(FileSystemContract, GivesTheLengthOfAFile) {
  EXPECT_EQ(files.attributes(lay("file", "12345"))->size, 5);
  EXPECT_EQ(files.attributes(lay("empty", ""))->size, 0);
  EXPECT_EQ(outcomeOf(files.attributes(at("nothing"))), kNothingToRead);
}

TEST_P(FileSystemContract, GivesTheAttributesOfALinkAndNotOfItsTarget) {
  lay("file", "12345");
  for (const std::string target : {"file", "nowhere at all"}) {
    under->makeLink(at("link to " + target), target);
    EXPECT_TRUE(files.attributes(at("link to " + target))->isSymbolicLink);
    EXPECT_EQ(files.attributes(at("link to " + target))->size, static_cast<std::int64_t>(target.size()));
  }
  layFolder("folder");
  under->makeLink(at("link"), "folder");
  EXPECT_TRUE(files.attributes(at("link/"))->isSymbolicLink);
  EXPECT_EQ(files.attributes(at("link/"))->size, 6);
  EXPECT_FALSE(files.attributes(at("file"))->isSymbolicLink);
  EXPECT_FALSE(files.attributes(at(""))->isSymbolicLink);
}

TEST_P(FileSystemContract, ReadsAndReplacesWholeFiles) {
  const std::string bytes{"a\0b\n\xff", 5};
  EXPECT_EQ(outcomeOf(files.writeFile(at("file"), bytes)), "ok");
  EXPECT_EQ(files.readFile(at("file")).value(), bytes);
  EXPECT_EQ(outcomeOf(files.writeFile(at("file"), "new")), "ok");
  EXPECT_EQ(files.readFile(at("file")).value(), "new");
  EXPECT_EQ(treeOf(under->folder()), Lines{"file"});
}

TEST_P(FileSystemContract, FailsToReadOrWriteWhereNothingCanBe) {
  EXPECT_EQ(outcomeOf(files.readFile(at("nothing"))), kNothingToRead);
  EXPECT_FALSE(files.readFile(layFolder("folder")));
  EXPECT_EQ(outcomeOf(files.writeFile(at("missing/file"), "x")), kMissing);
  EXPECT_FALSE(files.writeFile(at("folder"), "x"));
  EXPECT_EQ(treeOf(under->folder()), Lines{"folder/"});
}

TEST_P(FileSystemContract, ReadsAWholeFileUpToALimit) {
  const auto path = lay("file", "0123456789");
  EXPECT_EQ(readBoundedFile(files, path, 10).value(), "0123456789");
  EXPECT_EQ(readBoundedFile(files, lay("empty", ""), 0).value(), "");
  EXPECT_TRUE(readBoundedFile(files, path, 9).error().is(ErrorDomain::cocoa, CocoaError::fileReadCorrupt));
  EXPECT_EQ(outcomeOf(readBoundedFile(files, at("nothing"), 10)), kNothingToRead);
  EXPECT_FALSE(readBoundedFile(files, layFolder("folder"), 10));
}

TEST_P(FileSystemContract, ReadsAFileInPiecesToItsEnd) {
  const auto reader = files.openForReading(lay("file", "0123456789"));
  ASSERT_TRUE(reader);
  std::string bytes;
  for (;;) {
    const auto piece = (*reader)->read(4);
    ASSERT_TRUE(piece);
    EXPECT_LE(piece->size(), 4U);
    if (piece->empty()) break;
    bytes += *piece;
  }
  EXPECT_EQ(bytes, "0123456789");
  EXPECT_EQ((*reader)->read(4).value(), "");
  EXPECT_EQ(outcomeOf(files.openForReading(at("nothing"))), kNothingToRead);
}

TEST_P(FileSystemContract, AppendsToAFileThatExists) {
  const auto appender = files.openForAppending(lay("file", "old\n"));
  ASSERT_TRUE(appender);
  EXPECT_TRUE((*appender)->write("one\n"));
  EXPECT_TRUE((*appender)->write("two\n"));
  EXPECT_EQ(bytesOf(at("file")), "old\none\ntwo\n");
  EXPECT_EQ(outcomeOf(files.openForAppending(at("nothing"))), kMissing);
  EXPECT_FALSE(files.fileExists(at("nothing")));
}

TEST_P(FileSystemContract, GoesOnAppendingToAFileThatWasRenamedOrRemoved) {
  const auto appender = files.openForAppending(lay("file", "old\n"));
  ASSERT_TRUE(appender);
  ASSERT_TRUE(files.moveItem(at("file"), at("moved")));
  EXPECT_TRUE((*appender)->write("new\n"));
  EXPECT_EQ(bytesOf(at("moved")), "old\nnew\n");
  ASSERT_TRUE(files.removeItem(at("moved")));
  EXPECT_TRUE((*appender)->write("lost\n"));
  EXPECT_EQ(treeOf(under->folder()), Lines{});
}

TEST_P(FileSystemContract, CopiesATreeWithItsLinks) {
  lay("source/Contents/file", "bytes");
  lay("source/.hidden");
  layFolder("source/empty");
  under->makeLink(at("source/link"), "Contents/file");
  under->makeLink(at("source/dangling"), "/nowhere/at/all");
  under->setExecutable(at("source/Contents/file"));
  EXPECT_EQ(outcomeOf(files.copyItem(at("source"), at("copy"))), "ok");
  EXPECT_EQ(treeOf(at("copy")), treeOf(at("source")));
  EXPECT_EQ(treeOf(at("copy")),
            (Lines{".hidden", "Contents/", "Contents/file", "dangling@", "empty/", "link@"}));
  EXPECT_EQ(bytesOf(at("copy/link")), "bytes");
  EXPECT_TRUE(files.isExecutable(at("copy/Contents/file")));
  EXPECT_FALSE(files.isExecutable(at("copy/.hidden")));
}

TEST_P(FileSystemContract, CopiesALinkAsALink) {
  lay("file");
  under->makeLink(at("link"), "file");
  EXPECT_EQ(outcomeOf(files.copyItem(at("link"), at("copy"))), "ok");
  EXPECT_EQ(treeOf(under->folder()), (Lines{"copy@", "file", "link@"}));
}

TEST_P(FileSystemContract, CopiesNothingOntoSomething) {
  lay("source/file");
  lay("taken", "mine");
  under->makeLink(at("dangling"), "nowhere");
  EXPECT_EQ(outcomeOf(files.copyItem(at("source"), at("taken"))), kExists);
  EXPECT_EQ(outcomeOf(files.copyItem(at("source"), at("dangling"))), kExists);
  EXPECT_EQ(outcomeOf(files.copyItem(at("nothing"), at("copy"))), kNothingToRead);
  EXPECT_EQ(outcomeOf(files.copyItem(at("source"), at("missing/copy"))), kMissing);
  EXPECT_EQ(treeOf(under->folder()), (Lines{"dangling@", "source/", "source/file", "taken"}));
  EXPECT_EQ(bytesOf(at("taken")), "mine");
}

TEST_P(FileSystemContract, LeavesNothingOfACopyThatMayNotBeMade) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("source/file");
    layFolder("closed");
    under->setWritable(at("closed"), false);
    const auto outcome = outcomeOf(files.copyItem(at("source"), at("closed/copy")));
    return Lines{outcome, files.fileExists(at("closed/copy")) ? "left" : "nothing left"};
  });
  EXPECT_EQ(transcript, (Lines{kNotPermitted, "nothing left"}));
  EXPECT_EQ(treeOf(at("closed")), Lines{});
}

TEST_P(FileSystemContract, LeavesNothingOfACopyWhoseSourceCannotBeRead) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("source/a");
    lay("source/b");
    under->setReadable(at("source/b"), false);
    layFolder("target");
    return Lines{outcomeOf(files.copyItem(at("source"), at("target/copy")))};
  });
  EXPECT_EQ(transcript, Lines{kUnreadable});
  EXPECT_EQ(treeOf(at("target")), Lines{});
}

TEST_P(FileSystemContract, MovesATreeAndNeverReplaces) {
  lay("source/file", "bytes");
  lay("taken");
  EXPECT_EQ(outcomeOf(files.moveItem(at("source"), at("taken"))), kExists);
  EXPECT_EQ(outcomeOf(files.moveItem(at("nothing"), at("target"))), kMissing);
  EXPECT_EQ(outcomeOf(files.moveItem(at("source"), at("missing/target"))), kMissing);
  EXPECT_EQ(outcomeOf(files.moveItem(at("source"), at("target"))), "ok");
  EXPECT_EQ(treeOf(under->folder()), (Lines{"taken", "target/", "target/file"}));
}

TEST_P(FileSystemContract, MovesALinkAndNotItsTarget) {
  lay("file");
  under->makeLink(at("link"), "file");
  EXPECT_EQ(outcomeOf(files.moveItem(at("link"), at("moved"))), "ok");
  EXPECT_EQ(treeOf(under->folder()), (Lines{"file", "moved@"}));
}

TEST_P(FileSystemContract, MovesNothingOutOfOrIntoAClosedFolder) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("closed/file");
    lay("free");
    under->setWritable(at("closed"), false);
    return Lines{outcomeOf(files.moveItem(at("closed/file"), at("out"))),
                 outcomeOf(files.moveItem(at("free"), at("closed/in")))};
  });
  EXPECT_EQ(transcript, (Lines{kNotPermitted, kNotPermitted}));
  EXPECT_EQ(treeOf(under->folder()), (Lines{"closed/", "closed/file", "free"}));
}

TEST_P(FileSystemContract, RemovesFilesLinksAndTrees) {
  lay("tree/a/b");
  lay("target");
  under->makeLink(at("link"), "target");
  under->makeLink(at("dangling"), "nowhere");
  for (const auto* const name : {"tree", "link", "dangling"}) {
    EXPECT_EQ(outcomeOf(files.removeItem(at(name))), "ok") << name;
  }
  EXPECT_EQ(outcomeOf(files.removeItem(at("nothing"))), kMissing);
  EXPECT_EQ(treeOf(under->folder()), Lines{"target"});
}

TEST_P(FileSystemContract, RemovesNothingBeyondALink) {
  lay("outside/file");
  layFolder("tree");
  under->makeLink(at("tree/link"), at("outside"));
  EXPECT_EQ(outcomeOf(files.removeItem(at("tree"))), "ok");
  EXPECT_EQ(treeOf(under->folder()), (Lines{"outside/", "outside/file"}));
}

TEST_P(FileSystemContract, RemovesNothingFromAClosedFolder) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("closed/file");
    under->setWritable(at("closed"), false);
    return Lines{outcomeOf(files.removeItem(at("closed/file")))};
  });
  EXPECT_EQ(transcript, Lines{kNotPermitted});
  EXPECT_EQ(treeOf(under->folder()), (Lines{"closed/", "closed/file"}));
}

TEST_P(FileSystemContract, StopsTheRemovalOfATreeAtAClosedFolderInIt) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("tree/closed/file");
    under->setWritable(at("tree/closed"), false);
    return Lines{outcomeOf(files.removeItem(at("tree")))};
  });
  EXPECT_EQ(transcript, Lines{kNotPermitted});
  EXPECT_TRUE(files.fileExists(at("tree/closed/file")));
}

TEST_P(FileSystemContract, RemovesNothingOfATreeThatHoldsAnImmutableItem) {
  if (!under->laysForOthers()) GTEST_SKIP() << "only root may make a file immutable";
  for (const std::string name : {"tree", ".tree"}) {
    for (const std::string fixed : {"/b/fixed", "/b/empty", "/b", ""}) {
      for (const auto* const file : {"/a/file", "/b/fixed", "/c"}) lay(name + file);
      layFolder(name + "/b/empty");
      const auto before = treeOf(under->folder());
      under->setImmutable(at(name + fixed), true);
      EXPECT_EQ(outcomeOf(files.removeItem(at(name))), kNotPermitted) << name << fixed;
      EXPECT_EQ(treeOf(under->folder()), before) << name << fixed;
      under->setImmutable(at(name + fixed), false);
      EXPECT_EQ(outcomeOf(files.removeItem(at(name))), "ok") << name << fixed;
    }
  }
}

TEST_P(FileSystemContract, RemovesNothingOfATreeThatHoldsAnothersFileInAStickyFolder) {
  if (!under->laysForOthers()) GTEST_SKIP() << "only root may make a file of another user";
  for (const std::string name : {"tree", ".tree"}) {
    under->asOrdinaryUser([&] {
      for (const auto* const file : {"/a/file", "/shared/theirs", "/c"}) lay(name + file);
      return Lines{};
    });
    under->makeSticky(at(name + "/shared"));
    const auto transcript = under->asOrdinaryUser([&] {
      lay(name + "/shared/own");
      return Lines{outcomeOf(files.removeItem(at(name))),
                   outcomeOf(files.removeItem(at(name + "/shared/theirs"))),
                   outcomeOf(files.moveItem(at(name + "/shared/theirs"), at("moved"))),
                   outcomeOf(files.removeItem(at(name + "/shared/own")))};
    });
    EXPECT_EQ(transcript, (Lines{kNotPermitted, kNotPermitted, kNotPermitted, "ok"}));
    EXPECT_EQ(treeOf(at(name)), (Lines{"a/", "a/file", "c", "shared/", "shared/theirs"}));
  }
}

TEST_P(FileSystemContract, ClearsWhatAKilledCopyLeftBesideTheName) {
  const auto left = [&] {
    under->leaveKilledCopy(at("App"));
    return treeOf(under->folder()).size();
  };
  lay("source");
  ASSERT_GT(left(), 1U);
  EXPECT_TRUE(files.clearLeftovers(at("App")));
  EXPECT_FALSE(files.clearLeftovers(at("App")));
  EXPECT_EQ(treeOf(under->folder()), Lines{"source"});
  ASSERT_GT(left(), 1U);
  EXPECT_FALSE(files.clearLeftovers(at("Other")));
  EXPECT_EQ(outcomeOf(files.removeItem(at("App"))), kMissing);
  EXPECT_EQ(treeOf(under->folder()), Lines{"source"});
  ASSERT_GT(left(), 1U);
  EXPECT_EQ(outcomeOf(files.copyItem(at("source"), at("App"))), "ok");
  EXPECT_EQ(treeOf(under->folder()), (Lines{"App", "source"}));
  ASSERT_GT(left(), 2U);
  EXPECT_EQ(outcomeOf(files.removeItem(at("App"))), "ok");
  EXPECT_EQ(treeOf(under->folder()), Lines{"source"});
}

TEST_P(FileSystemContract, TakesANameThatADanglingLinkHasForTaken) {
  lay("file");
  under->makeLink(at("dangling"), "nowhere");
  EXPECT_TRUE(files.itemExists(at("dangling")));
  EXPECT_TRUE(files.isSymbolicLink(at("dangling")));
  EXPECT_FALSE(files.itemExists(at("nowhere")));
  EXPECT_FALSE(files.isSymbolicLink(at("nowhere")));
  EXPECT_EQ(outcomeOf(files.moveItem(at("file"), at("dangling"))), kExists);
  EXPECT_EQ(treeOf(under->folder()), (Lines{"dangling@", "file"}));
}

TEST_P(FileSystemContract, KnowsAnItemAgainUnderAnotherName) {
  lay("item/file");
  const auto identity = files.attributes(at("item"))->identity;
  ASSERT_TRUE(files.moveItem(at("item"), at("moved")));
  EXPECT_EQ(files.attributes(at("moved"))->identity, identity);
  ASSERT_TRUE(files.copyItem(at("moved"), at("item")));
  EXPECT_NE(files.attributes(at("item"))->identity, identity);
}

TEST_P(FileSystemContract, MakesFolders) {
  using enum FileSystem::Intermediates;
  EXPECT_EQ(outcomeOf(files.createDirectory(at("a/b/c"), create)), "ok");
  EXPECT_EQ(outcomeOf(files.createDirectory(at("a/b/c"), create)), "ok");
  EXPECT_EQ(outcomeOf(files.createDirectory(at("a/b"), require)), kExists);
  EXPECT_EQ(outcomeOf(files.createDirectory(at("x/y"), require)), kMissing);
  EXPECT_EQ(outcomeOf(files.createDirectory(lay("file"), create)), kExists);
  EXPECT_EQ(treeOf(under->folder()), (Lines{"a/", "a/b/", "a/b/c/", "file"}));
}

TEST_P(FileSystemContract, KnowsWhatTheUserMayDo) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("file");
    lay("closed/file");
    under->setWritable(at("closed"), false);
    under->setExecutable(lay("program"));
    Lines lines;
    const auto note = [&lines](const std::string& what, bool answer) {
      lines.push_back(what + (answer ? " yes" : " no"));
    };
    for (const auto* const name : {"file", "closed", "nothing"}) {
      note(std::string{name} + " writable", files.isWritable(at(name)));
    }
    for (const auto* const name : {"file", "program", "closed", "nothing"}) {
      note(std::string{name} + " executable", files.isExecutable(at(name)));
    }
    return lines;
  });
  EXPECT_EQ(transcript,
            (Lines{"file writable yes", "closed writable no", "nothing writable no", "file executable no",
                   "program executable yes", "closed executable yes", "nothing executable no"}));
}

TEST_P(FileSystemContract, RefusesToReadOrListWhatIsUnreadable) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("file");
    lay("closed/file");
    under->setReadable(at("file"), false);
    under->setReadable(at("closed"), false);
    return Lines{outcomeOf(files.readFile(at("file"))), outcomeOf(files.openForReading(at("file"))),
                 outcomeOf(files.contentsOfDirectory(at("closed")))};
  });
  EXPECT_EQ(transcript, (Lines{kUnreadable, kUnreadable, kUnreadable}));
}

TEST_P(FileSystemContract, RefusesToWriteWhereTheUserMayNot) {
  const auto transcript = under->asOrdinaryUser([this] {
    layFolder("closed");
    lay("fixed", "old");
    under->setWritable(at("closed"), false);
    under->setWritable(at("fixed"), false);
    return Lines{outcomeOf(files.writeFile(at("closed/file"), "x")),
                 outcomeOf(files.createDirectory(at("closed/folder"), FileSystem::Intermediates::require)),
                 outcomeOf(files.openForAppending(at("fixed")))};
  });
  EXPECT_EQ(transcript, (Lines{kNotPermitted, kNotPermitted, kNotPermitted}));
  EXPECT_EQ(treeOf(at("closed")), Lines{});
}

TEST_P(FileSystemContract, WalksParentsBeforeChildren) {
  lay("top/a/b/file");
  lay("top/.hidden/file");
  under->makeLink(at("top/link"), "a");
  Lines seen;
  const bool opened = files.enumerate(
      at("top"), HiddenEntries::visit,
      [&](const DirectoryEntry& entry) {
        EXPECT_EQ(entry.isDirectory + entry.isSymbolicLink + entry.isRegularFile, 1) << entry.path;
        const auto parent = parentFolder(entry.path);
        EXPECT_TRUE(parent == at("top") || std::ranges::find(seen, parent) != seen.end()) << entry.path;
        seen.push_back(entry.path);
        return Descend::yes;
      },
      nullptr);
  EXPECT_TRUE(opened);
  std::ranges::sort(seen);
  EXPECT_EQ(seen, (Lines{at("top/.hidden"), at("top/.hidden/file"), at("top/a"), at("top/a/b"),
                         at("top/a/b/file"), at("top/link")}));
}

TEST_P(FileSystemContract, SkipsHiddenEntriesAndAllBeneathThem) {
  lay("top/.hidden/file");
  lay("top/.file");
  lay("top/shown");
  Lines seen;
  files.enumerate(
      at("top"), HiddenEntries::skip,
      [&](const DirectoryEntry& entry) {
        seen.push_back(entry.path);
        return Descend::yes;
      },
      nullptr);
  EXPECT_EQ(seen, Lines{at("top/shown")});
}

TEST_P(FileSystemContract, StaysOutOfADirectoryWhenToldTo) {
  lay("top/a/file");
  Lines seen;
  files.enumerate(
      at("top"), HiddenEntries::visit,
      [&](const DirectoryEntry& entry) {
        seen.push_back(entry.path);
        return Descend::no;
      },
      nullptr);
  EXPECT_EQ(seen, Lines{at("top/a")});
}

TEST_P(FileSystemContract, WalksNothingThatIsNoDirectory) {
  const auto visit = [](const DirectoryEntry& entry) {
    ADD_FAILURE() << entry.path;
    return Descend::yes;
  };
  EXPECT_FALSE(files.enumerate(at("nothing"), HiddenEntries::visit, visit, nullptr));
  EXPECT_FALSE(files.enumerate(lay("file"), HiddenEntries::visit, visit, nullptr));
  EXPECT_TRUE(files.enumerate(layFolder("empty"), HiddenEntries::visit, visit, nullptr));
}

TEST_P(FileSystemContract, ReportsADirectoryItCannotReadAndGoesOn) {
  const auto transcript = under->asOrdinaryUser([this] {
    lay("top/closed/file");
    lay("top/open/file");
    under->setReadable(at("top/closed"), false);
    Lines lines;
    files.enumerate(
        at("top"), HiddenEntries::visit,
        [&](const DirectoryEntry& entry) {
          lines.push_back("visited " + entry.path.substr(under->folder().size()));
          return Descend::yes;
        },
        [&](const Path& path, const Error& error) {
          lines.push_back("failed " + path.substr(under->folder().size()) + " " + std::to_string(error.code));
        });
    std::ranges::sort(lines);
    return lines;
  });
  EXPECT_EQ(transcript, (Lines{"failed /top/closed 257", "visited /top/closed", "visited /top/open",
                               "visited /top/open/file"}));
}

TEST_P(FileSystemContract, CountsAllocatedBytesOfRegularFiles) {
  lay("top/file", std::string(10000, 'x'));
  lay("top/empty", "");
  under->makeLink(at("top/link"), "file");
  std::int64_t sum = 0;
  files.enumerate(
      at("top"), HiddenEntries::visit,
      [&](const DirectoryEntry& entry) {
        if (!entry.isRegularFile) return Descend::yes;
        EXPECT_TRUE(entry.totalFileAllocatedSize.has_value() || entry.fileAllocatedSize.has_value());
        sum += entry.totalFileAllocatedSize.value_or(entry.fileAllocatedSize.value_or(0));
        return Descend::yes;
      },
      nullptr);
  EXPECT_GE(sum, 10000);
  EXPECT_LT(sum, 100000);
}

TEST_P(FileSystemContract, TellsHowMuchRoomThereIs) {
  const auto available = files.volumeAvailableCapacity(under->folder());
  ASSERT_TRUE(available);
  EXPECT_GT(*available, 0);
  EXPECT_TRUE(files.fileSystemFreeSize(under->folder()).has_value());
  EXPECT_EQ(files.volumeAvailableCapacity(at("nothing")), std::nullopt);
  EXPECT_EQ(files.fileSystemFreeSize(at("nothing")), std::nullopt);
}

TEST_P(FileSystemContract, HasNoHiddenVolumeWhereNoneIsMounted) {
  const auto folder = layFolder("folder");
  const auto file = lay("file");
  for (const Path& path : {folder, file, at("missing"), Path{"/"}}) EXPECT_FALSE(files.isHiddenVolume(path));
}

TEST_P(FileSystemContract, GivesALockToOneHolderAtATimeAndAgainWhenItIsReleased) {
  lay("file");
  layFolder("folder");
  for (const auto* const name : {"file", "folder"}) {
    auto first = files.tryLock(at(name));
    ASSERT_TRUE(first && *first != nullptr) << name;
    const auto second = files.tryLock(at(name));
    EXPECT_TRUE(second && *second == nullptr) << name;
    first->reset();
    const auto third = files.tryLock(at(name));
    EXPECT_TRUE(third && *third != nullptr) << name;
  }
}

TEST_P(FileSystemContract, LocksWhatALinkLeadsToAndKeepsTheLockThroughARename) {
  layFolder("folder");
  under->makeLink(at("link"), "folder");
  const auto lock = files.tryLock(at("link"));
  ASSERT_TRUE(lock && *lock != nullptr);
  ASSERT_TRUE(files.moveItem(at("folder"), at("renamed")));
  const auto again = files.tryLock(at("renamed"));
  EXPECT_TRUE(again && *again == nullptr);
  layFolder("folder");
  EXPECT_NE(files.tryLock(at("folder")).value(), nullptr);
}

TEST_P(FileSystemContract, LocksWhatMayBeReadAndNothingElse) {
  lay("folder/file");
  lay("closed");
  under->setWritable(at("folder/file"), false);
  under->setWritable(at("folder"), false);
  under->setReadable(at("closed"), false);
  const auto transcript = under->asOrdinaryUser([this] {
    return Lines{outcomeOf(files.tryLock(at("folder"))), outcomeOf(files.tryLock(at("folder/file"))),
                 outcomeOf(files.tryLock(at("closed"))), outcomeOf(files.tryLock(at("nothing")))};
  });
  EXPECT_EQ(transcript, (Lines{"ok", "ok", kUnreadable, kNothingToRead}));
  under->setWritable(at("folder"), true);
}

TEST_P(FileSystemContract, TellsWhichFileAnAppenderWritesTo) {
  lay("file", "12");
  const auto appender = files.openForAppending(at("file"));
  ASSERT_TRUE(appender);
  const auto identity = files.attributes(at("file")).value().identity;
  ASSERT_TRUE(files.moveItem(at("file"), at("renamed")));
  lay("file", "another");
  ASSERT_TRUE((*appender)->write("345"));
  const auto open = (*appender)->attributes().value();
  EXPECT_EQ(open.size, 5);
  EXPECT_EQ(open.identity, identity);
  EXPECT_NE(open.identity, files.attributes(at("file")).value().identity);
}

INSTANTIATE_CONTRACT(FileSystemContract);

}  // namespace
}  // namespace installer::test
