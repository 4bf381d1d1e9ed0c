#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/LocalTime.h"
#include "Utils/LogExport.h"
#include "Utils/Logger.h"

namespace installer {
namespace {

using test::Lines;
using test::Operation;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class LogExportTest : public ::testing::Test {
 protected:
  test::SimulatedMachine machine;
  const Path logs = "/Users/tester/Library/Logs/Kelo-Desk-Installer";
  const Path staging = "/private/tmp/tester/KeloDeskInstaller-logexport-4242";

  // The logger creates its file when it starts; a test of an empty folder removes it.
  void startLogger() { Logger::shared().flush(); }
  void emptyLogs() {
    startLogger();
    machine.files.erase(logs);
    machine.files.addDirectory(logs);
  }
  Path archiveIn(const Path& folder) {
    return folder + "/KeloDeskInstaller-logs-" + LocalTime::fileStamp(machine.dispatch.now()) + ".zip";
  }
  // A file of the archiver's input, by name; the fake archiver copies the whole folder.
  std::string entry(const std::string& name) {
    machine.dispatch.advance(std::chrono::seconds{1});  // so that the names of archives differ
    const auto archive = LogExport::exportLogs("/out");
    EXPECT_TRUE(archive);
    return archive ? machine.files.read(*archive + "/" + name) : "";
  }
  std::string digestOf(const std::string& contents) {
    emptyLogs();
    machine.files.addFile(logs + "/a.log", contents);
    return entry("error-summary.txt");
  }
  static std::string keptLines(const std::string& digest) {
    const auto header = digest.find("--- a.log (");
    return header == std::string::npos ? "" : digest.substr(digest.find('\n', header) + 1);
  }
};

TEST_F(LogExportTest, GivesTheFullPathOfAnArchiveNamedAfterTheLocalTime) {
  EXPECT_EQ(LogExport::exportLogs("/out").value(), archiveIn("/out"));
}

TEST_F(LogExportTest, ArchivesTheStagingFolderAndRemovesIt) {
  ASSERT_TRUE(LogExport::exportLogs("/out"));
  EXPECT_EQ(machine.programs.commandLines(machine.paths.ditto),
            (Lines{"ditto -c -k --sequesterRsrc " + staging + " " + archiveIn("/out")}));
  EXPECT_FALSE(machine.files.exists(staging));
}

TEST_F(LogExportTest, CopiesEveryLogInAscendingOrderAndNothingElse) {
  emptyLogs();
  for (const char* name : {"b.log", "webinstall.log", "a.log", "old.txt", "c.LOG", "x.log.1"}) {
    machine.files.addFile(logs + "/" + name, name);
  }
  const auto archive = LogExport::exportLogs("/out").value();
  EXPECT_THAT(machine.files.tree(archive),
              ElementsAre("a.log", "b.log", "error-summary.txt", "manifest.txt", "webinstall.log"));
  EXPECT_EQ(machine.files.read(archive + "/a.log"), "a.log");
  const auto manifest = machine.files.read(archive + "/manifest.txt");
  EXPECT_THAT(manifest, EndsWith("Sources\n-------\n"
                                 "[included] " +
                                 logs +
                                 "/a.log (5 bytes)\n"
                                 "[included] " +
                                 logs +
                                 "/b.log (5 bytes)\n"
                                 "[included] " +
                                 logs + "/webinstall.log (14 bytes)\n"));
  EXPECT_THAT(manifest, Not(HasSubstr("old.txt")));
}

TEST_F(LogExportTest, HoldsEverythingLoggedSoFar) {
  log("the last word before the export");
  EXPECT_THAT(entry("webinstall.log"), HasSubstr("the last word before the export"));
}

TEST_F(LogExportTest, WritesAManifest) {
  emptyLogs();
  const auto manifest = entry("manifest.txt");
  EXPECT_EQ(manifest,
            "Kelo Desk Apps Installer — log bundle\n"
            "=========================================\n"
            "\n"
            "Collected:        " +
                LocalTime::dateAndTime(machine.dispatch.now()) +
                "\n"
                "Engine version:   1.0.0\n"
                "Platform:         macOS Version 14.5 (Build 23F79)\n"
                "Architecture:     arm64\n"
                "Files included:   0\n"
                "\n"
                "Sources\n"
                "-------\n"
                "[empty] " +
                logs + " — no .log files\n");
}

TEST_F(LogExportTest, NamesTheOtherArchitecture) {
  machine.systemInfo.machine = "x86_64";
  EXPECT_THAT(entry("manifest.txt"), HasSubstr("\nArchitecture:     x86_64\n"));
}

TEST_F(LogExportTest, SucceedsWithAnEmptyLogDirectory) {
  emptyLogs();
  const auto archive = LogExport::exportLogs("/out");
  ASSERT_TRUE(archive);
  EXPECT_THAT(machine.files.tree(*archive), ElementsAre("error-summary.txt", "manifest.txt"));
  EXPECT_THAT(machine.files.read(*archive + "/error-summary.txt"),
              HasSubstr("No WARN or ERROR lines were logged."));
}

TEST_F(LogExportTest, NotesAnUnreadableLogDirectoryTwice) {
  startLogger();
  machine.files.setReadable(logs, false);
  EXPECT_THAT(entry("manifest.txt"), EndsWith("[skipped] " + logs +
                                              " — could not read the log directory\n"
                                              "[empty] " +
                                              logs + " — no .log files\n"));
}

TEST_F(LogExportTest, CopiesTheBytesThatALinkLeadsTo) {
  emptyLogs();
  machine.files.addFile("/Volumes/Data/kelo.log", "elsewhere");
  machine.files.addSymlink(logs + "/a.log", "/Volumes/Data/kelo.log");
  machine.files.addSymlink(logs + "/b.log", "/nowhere");
  const auto archive = LogExport::exportLogs("/out").value();
  machine.files.erase("/Volumes/Data/kelo.log");
  EXPECT_EQ(machine.files.read(archive + "/a.log"), "elsewhere");
  const auto manifest = machine.files.read(archive + "/manifest.txt");
  EXPECT_THAT(manifest, HasSubstr("\n[included] " + logs + "/a.log (9 bytes)\n"));
  EXPECT_THAT(manifest, HasSubstr("\n[skipped] " + logs + "/b.log — copy failed: "));
}

TEST_F(LogExportTest, GoesOnWithoutAFileThatCantBeCopied) {
  emptyLogs();
  machine.files.addFile(logs + "/a.log", "aa");
  machine.files.addFile(logs + "/b.log", "b");
  machine.files.failNext(Operation::copy, logs + "/a.log",
                         Error{std::string{ErrorDomain::cocoa}, 257, "not yours to read", nullptr});
  const auto manifest = entry("manifest.txt");
  EXPECT_THAT(manifest, EndsWith("[skipped] " + logs +
                                 "/a.log — copy failed: not yours to read\n"
                                 "[included] " +
                                 logs + "/b.log (1 bytes)\n"));
  EXPECT_THAT(manifest, HasSubstr("Files included:   1\n"));
}

TEST_F(LogExportTest, PutsAQuestionMarkForASizeThatCantBeRead) {
  emptyLogs();
  machine.files.addFile(logs + "/a.log", "aa");
  machine.files.failAlways(Operation::attributes, logs + "/a.log",
                           Error{std::string{ErrorDomain::cocoa}, 257, "no", nullptr});
  EXPECT_THAT(entry("manifest.txt"), EndsWith("[included] " + logs + "/a.log (? bytes)\n"));
}

TEST_F(LogExportTest, LacksTheManifestThatCantBeWritten) {
  machine.files.failNext(Operation::writeFile, staging + "/manifest.txt",
                         Error{std::string{ErrorDomain::cocoa}, 640, "full", nullptr});
  const auto archive = LogExport::exportLogs("/out");
  ASSERT_TRUE(archive);
  EXPECT_THAT(machine.files.tree(*archive), Not(::testing::Contains("manifest.txt")));
}

TEST_F(LogExportTest, WarnsOfADigestThatCantBeWritten) {
  machine.files.failNext(Operation::writeFile, staging + "/error-summary.txt",
                         Error{std::string{ErrorDomain::cocoa}, 640, "full", nullptr});
  ASSERT_TRUE(LogExport::exportLogs("/out"));
  EXPECT_EQ(machine.logLines("error summary"),
            (Lines{"WARN Could not write the log-bundle error summary: full"}));
}

TEST_F(LogExportTest, SaysInTheLogWhatItDid) {
  emptyLogs();
  machine.files.addFile(logs + "/a.log", "[t] [WARN] [f:1 g] w\n[t] [ERROR] [f:1 g] e\n");
  machine.files.addFile(logs + "/b.log", "[t] [f:1 g] i\n");
  Logger::shared().setEchoToStandardError(true);
  ASSERT_TRUE(LogExport::exportLogs("/out"));
  Logger::shared().flush();
  EXPECT_THAT(machine.streams.errorLines(),
              ElementsAre(EndsWith("] Log bundle error summary: 2 WARN/ERROR line(s) across 2 file(s)"),
                          EndsWith("] LogExport: wrote 2 log file(s) to " + archiveIn("/out"))));
}

// The destination.

TEST_F(LogExportTest, PutsTheArchiveOnTheDesktopWithoutADestination) {
  machine.files.addDirectory("/Users/tester/Desktop");
  EXPECT_EQ(LogExport::exportLogs(std::nullopt).value(), archiveIn("/Users/tester/Desktop"));
}

TEST_F(LogExportTest, TakesAnEmptyDestinationForNone) {
  machine.files.addDirectory("/Users/tester/Desktop");
  EXPECT_EQ(LogExport::exportLogs("").value(), archiveIn("/Users/tester/Desktop"));
}

TEST_F(LogExportTest, PutsTheArchiveInTheHomeWithoutADesktop) {
  EXPECT_EQ(LogExport::exportLogs(std::nullopt).value(), archiveIn("/Users/tester"));
  machine.dispatch.advance(std::chrono::seconds{1});
  machine.files.addFile("/Users/tester/Desktop", "a file is no folder");
  EXPECT_EQ(LogExport::exportLogs(std::nullopt).value(), archiveIn("/Users/tester"));
}

TEST_F(LogExportTest, MakesADestinationThatDoesNotExist) {
  ASSERT_FALSE(machine.files.exists("/new"));
  EXPECT_EQ(LogExport::exportLogs("/new/deeper").value(), archiveIn("/new/deeper"));
  EXPECT_TRUE(machine.files.directoryExists("/new/deeper"));
}

TEST_F(LogExportTest, TakesARelativeDestinationFromTheWorkingDirectoryAndGivesTheFullPath) {
  EXPECT_EQ(LogExport::exportLogs("bundles").value(), archiveIn("/Users/tester/work/bundles"));
}

// Failures.

TEST_F(LogExportTest, FailsWhenTheStagingFolderCantBeMade) {
  machine.files.failNext(Operation::createDirectory, staging,
                         Error{std::string{ErrorDomain::cocoa}, 513, "not here", nullptr});
  const auto archive = LogExport::exportLogs("/out");
  ASSERT_FALSE(archive);
  EXPECT_EQ(archive.error().localizedDescription, "not here");
  EXPECT_TRUE(machine.programs.starts(machine.paths.ditto).empty());
}

TEST_F(LogExportTest, FailsWhenTheDestinationCantBeMade) {
  machine.files.failNext(Operation::createDirectory, "/out",
                         Error{std::string{ErrorDomain::cocoa}, 513, "not there", nullptr});
  const auto archive = LogExport::exportLogs("/out");
  ASSERT_FALSE(archive);
  EXPECT_EQ(archive.error().localizedDescription, "not there");
  EXPECT_TRUE(machine.files.exists(staging));
}

TEST_F(LogExportTest, FailsWhenTheArchiverFailsAndLeavesTheStagingFolder) {
  machine.programs.on(machine.paths.ditto).exits(1, "", "ditto: No space left on device\n");
  const auto archive = LogExport::exportLogs("/out");
  ASSERT_FALSE(archive);
  EXPECT_EQ(machine.logLines("LogExport"), (Lines{"INFO LogExport: ditto: ditto: No space left on device"}));
  EXPECT_EQ(archive.error().localizedDescription, "ditto exited with 1");
  EXPECT_EQ(archive.error().domain, "LogExport");
  EXPECT_EQ(archive.error().code, 1);
  EXPECT_TRUE(machine.files.exists(staging));
}

TEST_F(LogExportTest, FailsWhenTheArchiverCantStart) {
  machine.programs.on(machine.paths.ditto).cannotLaunch("no such program");
  const auto archive = LogExport::exportLogs("/out");
  ASSERT_FALSE(archive);
  EXPECT_EQ(archive.error().localizedDescription, "no such program");
  EXPECT_TRUE(machine.files.exists(staging));
}

TEST_F(LogExportTest, ClearsWhatAnEarlierExportLeft) {
  machine.files.addFile(staging + "/stale.log", "[t] [ERROR] [f:1 g] stale\n");
  const auto archive = LogExport::exportLogs("/out").value();
  EXPECT_THAT(machine.files.tree(archive), Not(::testing::Contains("stale.log")));
}

TEST_F(LogExportTest, ClearsWhatExportsOfEndedProcessesLeft) {
  const Path folder = "/private/tmp/tester/";
  for (const char* name : {"KeloDeskInstaller-logexport-16", "KeloDeskInstaller-logexport-17",
                           "KeloDeskInstaller-logexport-", "KeloDeskInstaller-logexport-16x", "16"}) {
    machine.files.addFile(folder + name + "/a.log");
  }
  machine.files.setLockedByAnother(folder + "KeloDeskInstaller-logexport-17");
  ASSERT_TRUE(LogExport::exportLogs("/out"));
  EXPECT_FALSE(machine.files.exists(folder + "KeloDeskInstaller-logexport-16"));
  for (const char* name : {"KeloDeskInstaller-logexport-17", "KeloDeskInstaller-logexport-",
                           "KeloDeskInstaller-logexport-16x", "16"}) {
    EXPECT_TRUE(machine.files.exists(folder + name + "/a.log")) << name;
  }
}

TEST_F(LogExportTest, DoesNotFollowALinkUnderTheNameOfItsFolder) {
  machine.files.addFile("/Users/tester/Documents/webinstall.log", "mine");
  machine.files.addSymlink(staging, "/Users/tester/Documents");
  ASSERT_TRUE(LogExport::exportLogs("/out"));
  EXPECT_EQ(machine.files.tree("/Users/tester/Documents"), Lines{"webinstall.log"});
  EXPECT_EQ(machine.files.read("/Users/tester/Documents/webinstall.log"), "mine");
}

TEST_F(LogExportTest, HoldsTheLockOfItsFolderWhileItWorks) {
  bool wasLocked = false;
  machine.programs.on(machine.paths.ditto).doesNext([&](const test::Arguments&) {
    wasLocked = machine.files.tryLock(staging).value() == nullptr;
    return ProgramExit{};
  });
  EXPECT_TRUE(LogExport::exportLogs("/out"));
  EXPECT_TRUE(wasLocked);
}

TEST_F(LogExportTest, LeavesOutALinkToMoreThanALogCanBe) {
  machine.files.addFile("/var/huge", std::string((128UL << 20U) + 1, 'x'));
  machine.files.addSymlink(joined(logs, "huge.log"), "/var/huge");
  const auto archive = LogExport::exportLogs("/out").value();
  EXPECT_THAT(machine.files.tree(archive), Not(::testing::Contains("huge.log")));
}

TEST_F(LogExportTest, GoesOnWhenWhatAnEarlierExportLeftCantBeCleared) {
  machine.files.addFile(staging + "/stale.log", "");
  machine.files.failNext(Operation::remove, staging,
                         Error{std::string{ErrorDomain::cocoa}, 513, "mine", nullptr});
  EXPECT_TRUE(LogExport::exportLogs("/out"));
}

// The digest.

TEST_F(LogExportTest, KeepsTaggedLinesOnlyUnchangedAndInOrder) {
  struct Row {
    std::string line;
    bool kept;
  };
  const std::vector<Row> rows{
      {"[2026-03-01 12:00:00.000] [WARN] [A.cpp:1 f] message", true},
      {"[2026-03-01 12:00:00.000] [ERROR] [A.cpp:1 f] message", true},
      {"[time]   [ERROR] blanks before the tag", true},
      {"[time][WARN]no blank at all", true},
      {"] [WARN] the first bracket counts", true},
      {"[2026-03-01 12:00:00.000] [A.cpp:1 f] it says [WARN] here", false},
      {"[time]\t[WARN] a tab is no blank", false},
      {"[time] [warn] lower case", false},
      {"[time] [INFO] another level", false},
      {"[time] WARN without brackets", false},
      {"[WARN] the tag itself is the first bracket", false},
      {"no bracket at all, WARN", false},
      {"[time]", false},
      {"[time]    ", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(keptLines(digestOf(row.line + "\n")), row.kept ? row.line + "\n" : "") << row.line;
  }
}

TEST_F(LogExportTest, WritesADigestByFile) {
  emptyLogs();
  machine.files.addFile(logs + "/b.log", "\n\n[t] [ERROR] [f:1 g] b1\n[t] [f:1 g] -\n[t] [WARN] [f:1 g] b2");
  machine.files.addFile(logs + "/a.log", "[t] [WARN] [f:1 g] a1\n");
  machine.files.addFile(logs + "/c.log", "[t] [f:1 g] nothing\n");
  EXPECT_EQ(entry("error-summary.txt"),
            "Kelo Desk Apps Installer — WARN/ERROR digest\n"
            "===============================================\n"
            "\n"
            "Every [WARN]/[ERROR] line from the .log files in this bundle, in file order.\n"
            "This is a digest for triage — the complete logs are alongside it.\n"
            "\n"
            "--- a.log (1 line(s)) ---\n"
            "[t] [WARN] [f:1 g] a1\n"
            "\n"
            "--- b.log (2 line(s)) ---\n"
            "[t] [ERROR] [f:1 g] b1\n"
            "[t] [WARN] [f:1 g] b2\n");
}

TEST_F(LogExportTest, SaysSoWhenThereIsNothingToDigest) {
  EXPECT_THAT(digestOf("[t] [f:1 g] all is well\n"),
              EndsWith("\n"
                       "This is a digest for triage — the complete logs are alongside it.\n"
                       "\n"
                       "No WARN or ERROR lines were logged.\n"
                       "(Lines written before engine 1.0.0 carry no level tag and cannot appear here;\n"
                       " if this bundle came from an upgraded install, read the .log files directly.)\n"));
}

TEST_F(LogExportTest, PassesOverAFileThatARotationCutInsideACharacter) {
  EXPECT_THAT(digestOf("\x93 cut\n[t] [ERROR] [f:1 g] lost\n"), HasSubstr("No WARN or ERROR lines"));
  EXPECT_THAT(digestOf("[t] [ERROR] [f:1 g] kept — \n"), StartsWith("Kelo Desk Apps Installer"));
  EXPECT_EQ(keptLines(digestOf("[t] [ERROR] [f:1 g] kept —\n")), "[t] [ERROR] [f:1 g] kept —\n");
}

TEST_F(LogExportTest, DigestsTheCopiesAndNotTheOriginals) {
  emptyLogs();
  machine.files.addFile(logs + "/a.log", "[t] [ERROR] [f:1 g] in a file that isn't in the bundle\n");
  machine.files.failNext(Operation::copy, logs + "/a.log",
                         Error{std::string{ErrorDomain::cocoa}, 257, "no", nullptr});
  EXPECT_THAT(entry("error-summary.txt"), HasSubstr("No WARN or ERROR lines"));
}

}  // namespace
}  // namespace installer
