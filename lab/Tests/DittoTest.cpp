// ditto as the engine runs it: escalated copies and log bundles.
#include <csignal>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support.h"
#include "support/Attributes.h"

namespace lab {
namespace {

using test::attributeOf;
using test::contentOf;
using test::modeOf;
using test::namesIn;
using test::transcriptOf;
using test::Words;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

class Ditto : public test::ProgramTest {
 protected:
  fs::path bundle() const {
    write("source/It's.app/Contents/MacOS/run me", "#!/bin/sh\n", 0755);
    write("source/It's.app/Contents/Überblick", "text\n", 0444);
    write("source/It's.app/Contents/empty", "");
    fs::create_symlink("../absent", folder / "source/It's.app/Contents/link");
    return folder / "source/It's.app";
  }
  const fs::path target = folder / "target" / "It's.app";
  void SetUp() override { fs::create_directory(target.parent_path()); }
  // What 7-Zip lists in an archive: "path size" each, in order.
  std::string listed(const fs::path& archive) const {
    return run({"/usr/bin/7zz", "l", "-ba", archive}).output;
  }
};

TEST_F(Ditto, CopiesABundleWithModesLinksAndTimes) {
  const fs::path source = bundle();
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours{1000};
  fs::last_write_time(source / "Contents/empty", old);
  fs::last_write_time(source / "Contents", old);
  const auto copied = lab({"ditto", "--noqtn", source, target});
  EXPECT_EQ(copied.status, 0) << copied.diagnostics;
  EXPECT_EQ(copied.output + copied.diagnostics, "");
  EXPECT_EQ(transcriptOf(target), transcriptOf(source));
  EXPECT_EQ(fs::last_write_time(target / "Contents/empty"), fs::last_write_time(source / "Contents/empty"));
  EXPECT_EQ(fs::last_write_time(target / "Contents"), fs::last_write_time(source / "Contents"));
  EXPECT_THAT(namesIn(target.parent_path()), ElementsAre("It's.app"));
}

TEST_F(Ditto, CopiesNoFolderIntoItself) {
  const fs::path source = bundle();
  const auto before = transcriptOf(source);
  for (const fs::path& inside : {source / "B", source / "Contents", source / "Contents/new/B"}) {
    const auto copied = lab({"ditto", source, inside});
    EXPECT_EQ(copied.status, 1) << inside;
    EXPECT_EQ(copied.diagnostics, "ditto: " + inside.string() + ": a folder can't be copied into itself\n");
    EXPECT_EQ(transcriptOf(source), before) << inside;
  }
  EXPECT_EQ(lab({"ditto", source, folder / "source/It's.app too"}).status, 0);
}

TEST_F(Ditto, LeavesTheQuarantineMarkBehindWhenAskedTo) {
  const fs::path source = bundle();
  if (keepsNoAttributes(source)) GTEST_SKIP() << "this file system keeps no attributes";
  ASSERT_TRUE(setAttribute(source, "com.apple.quarantine", "0083"));
  ASSERT_TRUE(setAttribute(source / "Contents/empty", "com.apple.quarantine", "0083"));
  ASSERT_TRUE(setAttribute(source / "Contents/empty", "com.example.kept", "yes"));
  ASSERT_EQ(lab({"ditto", "--noqtn", source, target}).status, 0);
  EXPECT_EQ(attributeOf(target, "com.apple.quarantine"), "(none)");
  EXPECT_EQ(attributeOf(target / "Contents/empty", "com.apple.quarantine"), "(none)");
  EXPECT_EQ(attributeOf(target / "Contents/empty", "com.example.kept"), "yes");
  ASSERT_EQ(lab({"ditto", source, folder / "marked"}).status, 0);
  EXPECT_EQ(attributeOf(folder / "marked/Contents/empty", "com.apple.quarantine"), "0083");
}

TEST_F(Ditto, MergesIntoAFolderThatIsThere) {
  const fs::path source = bundle();
  write("target/It's.app/kept", "kept\n");
  write("target/It's.app/Contents/empty", "not empty\n");
  write("target/It's.app/Contents/link", "a file in the link's place\n");
  ASSERT_EQ(lab({"ditto", source, target}).status, 0);
  EXPECT_EQ(contentOf(target / "kept"), "kept\n");
  EXPECT_EQ(contentOf(target / "Contents/empty"), "");
  EXPECT_EQ(fs::read_symlink(target / "Contents/link"), "../absent");
}

TEST_F(Ditto, DoesNotWriteThroughALinkInTheDestination) {
  const fs::path source = bundle();
  write("outside/empty", "untouched\n");
  fs::create_directories(target);
  fs::create_symlink(folder / "outside", target / "Contents");
  const auto copied = lab({"ditto", source, target});
  EXPECT_EQ(copied.status, 1);
  EXPECT_THAT(copied.diagnostics, HasSubstr("ditto: "));
  EXPECT_EQ(contentOf(folder / "outside/empty"), "untouched\n");
  EXPECT_THAT(namesIn(folder / "outside"), ElementsAre("empty"));
}

// A user could replace a name by a link to a file that only root may read, while root copies for that user.
TEST_F(Ditto, FollowsNoLinkToItsSource) {
  const fs::path source = bundle();
  fs::create_symlink(source, folder / "link.app");
  fs::create_symlink(folder / "source", folder / "passage");
  for (const fs::path& way : {folder / "link.app", folder / "link.app/", folder / "passage/It's.app"}) {
    const auto copied = lab({"ditto", "--noqtn", way, target});
    EXPECT_EQ(copied.status, 1) << way;
    EXPECT_EQ(copied.diagnostics, "ditto: Cannot get the real path for source '" + way.string() + "'\n");
    EXPECT_THAT(namesIn(target.parent_path()), ElementsAre());
  }
}

TEST_F(Ditto, ClearsWhatAKilledOneLeft) {
  const fs::path source = bundle();
  const pid_t killed = fork();
  if (killed == 0) _exit(0);
  ASSERT_EQ(waitpid(killed, nullptr, 0), killed);
  const std::string left = ".ditto-" + std::to_string(killed) + "-abcdef";
  write("target/" + left + "/Contents/half");
  write("target/It's.app/" + left);
  write("target/.ditto-notes");
  write("target/.ditto-" + std::to_string(getpid()) + "-abcdef");
  ASSERT_EQ(lab({"ditto", "--noqtn", source, target}).status, 0);
  EXPECT_THAT(namesIn(target.parent_path()),
              ElementsAre(".ditto-" + std::to_string(getpid()) + "-abcdef", ".ditto-notes", "It's.app"));
  EXPECT_THAT(namesIn(target), ElementsAre("Contents"));
}

TEST_F(Ditto, CopiesAFileToANameOrIntoAFolder) {
  const fs::path file = write("one", "1\n", 0640);
  ASSERT_EQ(lab({"ditto", file, folder / "two"}).status, 0);
  EXPECT_EQ(contentOf(folder / "two"), "1\n");
  EXPECT_EQ(modeOf(folder / "two"), 0640U);
  ASSERT_EQ(lab({"ditto", file, target.parent_path()}).status, 0);
  EXPECT_EQ(contentOf(target.parent_path() / "one"), "1\n");
}

TEST_F(Ditto, LeavesNothingOfACopyThatFails) {
  const fs::path source = bundle();
  ASSERT_EQ(mkfifo((source / "Contents/pipe").c_str(), 0600), 0);
  const auto copied = lab({"ditto", "--noqtn", source, target});
  EXPECT_EQ(copied.status, 1);
  EXPECT_THAT(copied.diagnostics, HasSubstr("pipe: neither file, folder nor link"));
  EXPECT_THAT(namesIn(target.parent_path()), ElementsAre());
}

TEST_F(Ditto, FailsOnAMissingSourceAndAFileInTheWay) {
  const auto missing = lab({"ditto", folder / "absent", target});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.diagnostics,
            "ditto: Cannot get the real path for source '" + (folder / "absent").string() + "'\n");
  const auto inTheWay = lab({"ditto", bundle(), write("a file")});
  EXPECT_EQ(inTheWay.status, 1);
  EXPECT_EQ(contentOf(folder / "a file"), "content\n");
}

TEST_F(Ditto, PacksTheContentOfAFolder) {
  write("staging/manifest.txt", "m\n");
  write("staging/logs/webinstall.log", std::string(100'000, 'l'));
  write("staging/logs/Überblick.log", "ü\n");
  const fs::path archive = folder / "out" / "logs.zip";
  fs::create_directory(archive.parent_path());
  const auto packed = lab({"ditto", "-c", "-k", "--sequesterRsrc", folder / "staging", archive});
  EXPECT_EQ(packed.status, 0) << packed.diagnostics;
  EXPECT_THAT(namesIn(archive.parent_path()), ElementsAre("logs.zip"));
  ASSERT_EQ(run({"/usr/bin/7zz", "x", "-o" + (folder / "unpacked").string(), archive}).status, 0);
  EXPECT_EQ(transcriptOf(folder / "unpacked"), transcriptOf(folder / "staging"));
  EXPECT_EQ(contentOf(archive).substr(0, 4), "PK\x03\x04");
}

TEST_F(Ditto, PacksLinksAsLinksAndTheParentOnRequest) {
  const fs::path archive = folder / "app.zip";
  ASSERT_EQ(lab({"ditto", "-c", "-k", "--keepParent", bundle(), archive}).status, 0);
  ASSERT_EQ(run({"/usr/bin/7zz", "x", "-snld20", "-o" + (folder / "unpacked").string(), archive}).status, 0);
  EXPECT_EQ(transcriptOf(folder / "unpacked"), transcriptOf(folder / "source"));
}

TEST_F(Ditto, LeavesNoArchiveOfWhatCannotBePacked) {
  write("staging/file");
  ASSERT_EQ(mkfifo((folder / "staging/pipe").c_str(), 0600), 0);
  const fs::path out = folder / "out";
  fs::create_directory(out);
  for (const fs::path& source : {folder / "absent", folder / "staging"}) {
    const auto packed = lab({"ditto", "-c", "-k", "--sequesterRsrc", source, out / "a.zip"});
    EXPECT_EQ(packed.status, 1) << source;
    EXPECT_THAT(packed.diagnostics, HasSubstr("ditto: ")) << source;
    EXPECT_THAT(namesIn(out), ElementsAre()) << source;
  }
  EXPECT_EQ(lab({"ditto", "-c", "-k", folder / "Resources", folder / "no such folder" / "a.zip"}).status, 1);
}

TEST_F(Ditto, RefusesWhatItDoesNotKnow) {
  const std::vector<Words> rows{{"ditto"},
                                {"ditto", "a"},
                                {"ditto", "a", "b", "c"},
                                {"ditto", "-x", "-k", "a", "b"},
                                {"ditto", "-c", "a", "b"},
                                {"ditto", "--bom", "a", "b"}};
  for (const Words& words : rows) {
    const auto outcome = lab(words);
    EXPECT_EQ(outcome.status, 1) << testing::PrintToString(words);
    EXPECT_THAT(outcome.diagnostics, HasSubstr("usage: ditto")) << testing::PrintToString(words);
  }
  EXPECT_THAT(lab({"ditto", "--help"}).output, HasSubstr("usage: ditto"));
}

}  // namespace
}  // namespace lab
