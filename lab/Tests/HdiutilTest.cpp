// hdiutil as the engine runs it: arguments, streams, exit statuses, leftovers.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "plist/plist.h"

#include "Base/POSIX/FileDescriptor.h"
#include "Support.h"
#include "diskimage/DiskImage.h"
#include "diskimage/HFSVolume.h"
#include "diskimage/UDIFWriter.h"
#include "support/Attributes.h"
#include "support/Files.h"

namespace lab {
namespace {

using test::attributeOf;
using test::contentOf;
using test::modeOf;
using test::namesIn;
using test::Outcome;
using test::Running;
using test::transcriptOf;
using test::Words;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

// The only "mount-point" of the entities, and that entity's "dev-entry".
struct Answer {
  std::string mountPoint;
  std::string device;
  int entities = 0;
};

Answer answerIn(const std::string& output) {
  plist_t root = nullptr;
  plist_from_memory(output.data(), static_cast<std::uint32_t>(output.size()), &root);
  plist_t entities = root == nullptr ? nullptr : plist_dict_get_item(root, "system-entities");
  Answer answer;
  for (std::uint32_t i = 0; entities != nullptr && i < plist_array_get_size(entities);
       ++i, ++answer.entities) {
    plist_t entity = plist_array_get_item(entities, i);
    plist_t mountPoint = plist_dict_get_item(entity, "mount-point");
    if (mountPoint == nullptr) continue;
    answer.mountPoint = plist_get_string_ptr(mountPoint, nullptr);
    answer.device = plist_get_string_ptr(plist_dict_get_item(entity, "dev-entry"), nullptr);
  }
  plist_free(root);
  return answer;
}

class Hdiutil : public test::ProgramTest {
 protected:
  fs::path source() const {
    write("source/App.app/Contents/MacOS/App", "#!/bin/sh\n", 0755);
    return folder / "source";
  }
  Outcome attach(const fs::path& file) const {
    return lab({"hdiutil", "attach", file.string(), "-nobrowse", "-noverify", "-readonly", "-plist"});
  }
  Outcome detach(const std::string& what) const {
    return lab({"hdiutil", "detach", what, "-force", "-quiet"});
  }
  // The visible names in Volumes.
  std::vector<std::string> mounted() const {
    auto names = namesIn(volumes);
    std::erase_if(names, [](const std::string& name) { return name.starts_with('.'); });
    return names;
  }
  // The working folders of attach and detach.
  std::vector<std::string> underWay() const {
    auto names = namesIn(volumes / ".hdiutil");
    std::erase_if(names, [](const std::string& name) { return name == "lock" || name == "mounts.json"; });
    return names;
  }
};

TEST_F(Hdiutil, AttachesAndSaysWhereAsAPropertyList) {
  const auto attached = attach(image(source()));
  EXPECT_EQ(attached.status, 0) << attached.diagnostics;
  EXPECT_EQ(attached.diagnostics, "");
  const Answer answer = answerIn(attached.output);
  EXPECT_EQ(answer.mountPoint, (volumes / "Kelo Brenna").string());
  EXPECT_EQ(answer.device, "/dev/disk4s2");
  EXPECT_EQ(answer.entities, 3);
  EXPECT_EQ(contentOf(volumes / "Kelo Brenna/App.app/Contents/MacOS/App"), "#!/bin/sh\n");
  EXPECT_THAT(underWay(), IsEmpty());
}

TEST_F(Hdiutil, ShowsTheVolumeAsItWasMade) {
  const fs::path made = source();
  write("source/It's a “résumé” – Überblick ☃.txt", "text\n");
  write("source/.hidden/x", "");
  write("source/read-only", "r\n", 0444);
  write("source/tool with blanks", "t\n", 0755);
  write("source/a/b/c/d/e/f/g/h/i/j/k/l/deep", "d\n");
  write("source/back\\slash", "b\n");
  write("source/large", std::string(3'000'000, 'y'));
  fs::create_symlink("/Applications", made / "Applications");
  fs::create_symlink("../../outside/é", made / "a/way out");
  fs::create_symlink("App.app/Contents", made / "inside");
  for (int number = 0; const char* target : {"/", "//", "/..", "a//b", "/./a", "./", "a/", "a\\b"})
    fs::create_symlink(target, made / fmt::format(" link {} ", number++));
  fs::create_symlink("long/" + std::string(255, 'x') + "/" + std::string(255, 'y'), made / "far");
  fs::create_symlink("It's a “résumé” – Überblick ☃.txt", made / "accents");
  fs::create_directory(made / "empty folder");
  chmod((made / "empty folder").c_str(), 0775);
  const auto attached = attach(image(made, "Kelo Übersicht"));
  ASSERT_EQ(attached.status, 0) << attached.diagnostics;
  EXPECT_EQ(transcriptOf(volumes / "Kelo Übersicht"), transcriptOf(made));
}

TEST_F(Hdiutil, TakesTheNextNameWhenTheVolumesIsTaken) {
  const fs::path file = image(source());
  fs::create_directories(volumes / "Kelo Brenna 1");
  EXPECT_EQ(answerIn(attach(file).output).mountPoint, (volumes / "Kelo Brenna").string());
  fs::copy_file(file, folder / "another.dmg");
  const Answer second = answerIn(attach(folder / "another.dmg").output);
  EXPECT_EQ(second.mountPoint, (volumes / "Kelo Brenna 2").string());
  EXPECT_EQ(second.device, "/dev/disk5s2");
}

TEST_F(Hdiutil, AnswersWithTheMountOfAnImageThatIsAttached) {
  const fs::path file = image(source());
  fs::create_symlink(file, folder / "link.dmg");
  const auto first = attach(file);
  EXPECT_EQ(attach(file).output, first.output);
  EXPECT_EQ(attach(folder / "link.dmg").output, first.output);
  EXPECT_THAT(mounted(), ElementsAre("Kelo Brenna"));
  EXPECT_EQ(detach((volumes / "Kelo Brenna").string()).status, 0);
  EXPECT_THAT(mounted(), IsEmpty());
}

TEST_F(Hdiutil, AttachesANewFileUnderThePathOfAnAttachedOne) {
  const fs::path file = image(source());
  const std::string bytes = contentOf(file);
  ASSERT_EQ(attach(file).status, 0);
  fs::remove(file);
  std::ofstream{file, std::ios::binary} << bytes;
  EXPECT_EQ(answerIn(attach(file).output).mountPoint, (volumes / "Kelo Brenna 1").string());
}

TEST_F(Hdiutil, KeepsTheMountThatStoodWhenItCannotTellOfIt) {
  const fs::path file = image(source());
  ASSERT_EQ(attach(file).status, 0);
  Running running{
      {program("hdiutil").string(), "attach", file.string(), "-plist"}, "/dev/full", folder / "err"};
  EXPECT_EQ(running.wait(), 1);
  EXPECT_THAT(mounted(), ElementsAre("Kelo Brenna"));
}

TEST_F(Hdiutil, IsNotBlockedByTheMountOfADeadRun) {
  const fs::path file = image(source());
  fs::create_directories(volumes / "Kelo Brenna/left behind");
  EXPECT_EQ(answerIn(attach(file).output).mountPoint, (volumes / "Kelo Brenna 1").string());
}

TEST_F(Hdiutil, KeepsTheMountPointFromTakingNewEntries) {
  ASSERT_EQ(attach(image(source())).status, 0);
  EXPECT_EQ(modeOf(volumes / "Kelo Brenna"), 01555U);
  EXPECT_EQ(modeOf(volumes / "Kelo Brenna/App.app"), 0755U);
}

TEST_F(Hdiutil, MarksWhatCameFromElsewhere) {
  const fs::path made = source();
  write("source/read-only", "r\n", 0444);
  if (keepsNoAttributes(made)) GTEST_SKIP() << "this file system keeps no attributes";
  ASSERT_EQ(attach(image(made)).status, 0);
  for (const char* name : {"App.app", "App.app/Contents/MacOS/App", "read-only"}) {
    EXPECT_THAT(attributeOf(volumes / "Kelo Brenna" / name, "com.apple.quarantine"),
                HasSubstr("Kelo-Desk-Installer"));
  }
}

// The image was made with mkapfs, with items added to its catalog. It has no checksums, like images of
// "hdiutil create".
TEST_F(Hdiutil, OpensAPFSVolumes) {
  const auto attached = lab({"hdiutil", "attach", LAB_TEST_DATA "/apfs.dmg"});
  EXPECT_EQ(attached.status, 0) << attached.diagnostics;
  EXPECT_EQ(modeOf(volumes / "Kelo"), 0555U);
  EXPECT_THAT(transcriptOf(volumes / "Kelo"),
              ElementsAre("App.app/ 755", "App.app/Contents/ 755", "App.app/Contents/odd -> a//b",
                          "App.app/Contents/root -> /", "App.app/Contents/run 755 #!/bin/sh\n",
                          "App.app/Contents/up -> ../../x", "App.app/Contents/\u00fcber 644 #!/bin/sh\n",
                          "Applications -> /Applications"));
}

TEST_F(Hdiutil, GivesTheModesOfTheVolumeWhateverTheCallersMask) {
  const fs::path made = source();
  write("source/open", "o\n", 0666);
  fs::create_directory(made / "group's");
  chmod((made / "group's").c_str(), 0775);
  const fs::path file = image(made);
  for (const char* mask : {"000", "077"}) {
    const auto attached = run({"/bin/sh", "-c", R"(umask "$1" && exec "$2" attach "$3")", "sh", mask,
                               program("hdiutil").string(), file.string()});
    EXPECT_EQ(attached.status, 0) << attached.diagnostics;
    EXPECT_EQ(transcriptOf(volumes / "Kelo Brenna"), transcriptOf(made)) << mask;
    ASSERT_EQ(detach((volumes / "Kelo Brenna").string()).status, 0);
  }
}

TEST_F(Hdiutil, HidesWhatTheVolumeKeepsForItself) {
  source();
  write("source/.journal", "j");
  write("source/.journal_info_block", "i");
  write("source/.Trashes/501/x");
  write("source/App.app/.journal", "a");
  ASSERT_TRUE(makeHFSVolume(folder / "source", "Kelo", folder, folder / "volume.hfs"));
  {
    const installer::FileDescriptor output{open((folder / "own.dmg").c_str(), O_WRONLY | O_CREAT, 0600)};
    ASSERT_TRUE(writeUDIF(folder / "volume.hfs", output.get()));
  }
  const auto attached = attach(folder / "own.dmg");
  EXPECT_EQ(attached.status, 0) << attached.diagnostics;
  EXPECT_THAT(namesIn(volumes / "Kelo"), ElementsAre("App.app"));
  EXPECT_TRUE(fs::exists(volumes / "Kelo/App.app/.journal"));
}

TEST_F(Hdiutil, LeavesSetIdBitsOut) {
  const fs::path made = source();
  write("source/privileged", "p\n", 06755);
  ASSERT_EQ(attach(image(made)).status, 0);
  EXPECT_EQ(modeOf(volumes / "Kelo Brenna/privileged"), 0755U);
}

TEST_F(Hdiutil, RefusesBadImagesAndLeavesNothing) {
  const std::string good = contentOf(image(source()));
  struct Row {
    const char* name;
    std::string bytes;
    const char* reason;
  };
  std::string changed = good;
  changed.replace(60, 8, "????????");
  std::string pointsOutside = good;
  pointsOutside[good.size() - 512 + 217] = '\x7f';
  const std::vector<Row> rows{
      {"empty", "", "image not recognized"},
      {"text", "This is no disk image.\n", "image not recognized"},
      {"cut", good.substr(0, good.size() - 100), "image not recognized"},
      {"no data", good.substr(good.size() - 512), "image not recognized"},
      {"list outside", pointsOutside, "image not recognized"},
      {"zeroes before the trailer", std::string(good.size() - 512, '\0') + good.substr(good.size() - 512),
       "no mountable file systems"},
  };
  for (const Row& row : rows) {
    const auto attached = attach(write("bad.dmg", row.bytes));
    EXPECT_EQ(attached.status, 1) << row.name;
    EXPECT_EQ(attached.output, "") << row.name;
    EXPECT_THAT(attached.diagnostics, HasSubstr(std::string{"hdiutil: attach failed - "} + row.reason))
        << row.name;
  }
  EXPECT_EQ(attach(folder / "absent.dmg").diagnostics,
            "hdiutil: attach failed - No such file or directory\n");
  const auto verified = lab({"hdiutil", "attach", write("changed.dmg", changed).string()});
  EXPECT_EQ(verified.status, 1);
  EXPECT_THAT(verified.diagnostics, HasSubstr("attach failed - corrupt image"));
  EXPECT_THAT(mounted(), IsEmpty());
  EXPECT_THAT(underWay(), IsEmpty());
}

TEST_F(Hdiutil, UndoesAnAttachThatItCannotTellOf) {
  const fs::path file = image(source());
  Running running{
      {program("hdiutil").string(), "attach", file.string(), "-plist"}, "/dev/full", folder / "err"};
  EXPECT_EQ(running.wait(), 1);
  EXPECT_THAT(contentOf(folder / "err"), HasSubstr("attach failed"));
  EXPECT_THAT(mounted(), IsEmpty());
  EXPECT_THAT(underWay(), IsEmpty());
}

// A 7zz that changes its extracted files. `spoil` runs in the folder of the volume.
TEST_F(Hdiutil, RefusesAVolumeThatCameOutOtherThanListed) {
  const fs::path made = source();
  write("source/text", "12345\n");
  const fs::path file = image(made);
  const std::string path = std::getenv("PATH");
  for (const char* spoil : {"rm text", "echo more >> text", "rm text && mkdir text",
                            "rm text && ln -s /etc/passwd text", "touch x", "mv App.app Bpp.app"}) {
    write("bin/7zz",
          std::string{"#!/bin/sh\nPATH='"} + path + "'\n7zz \"$@\" || exit\nfor word; do case $word in\n" +
              "-o*) cd \"${word#-o}/Kelo Brenna\" && " + spoil + ";; esac; done\n",
          0755);
    setenv("PATH", ((folder / "bin").string() + ":" + path).c_str(), 1);
    const auto attached = attach(file);
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(attached.status, 1) << spoil;
    EXPECT_THAT(attached.diagnostics,
                testing::ContainsRegex("extracted from the image|match the image's list"))
        << spoil;
    EXPECT_THAT(mounted(), IsEmpty()) << spoil;
  }
}

// A 7zz that reports its start and then sleeps.
class HdiutilInterrupted : public Hdiutil {
 protected:
  void SetUp() override {
    file = image(source());
    const fs::path started = folder / "started";
    ASSERT_EQ(mkfifo(started.c_str(), 0600), 0);
    write("bin/7zz", "#!/bin/sh\necho yes > '" + started.string() + "'\nexec sleep 60\n", 0755);
    path_ = std::getenv("PATH");
    setenv("PATH", ((folder / "bin").string() + ":" + path_).c_str(), 1);
  }
  void TearDown() override { setenv("PATH", path_.c_str(), 1); }
  fs::path file;
  Words attaching() const {
    return {program("hdiutil").string(), "attach", file.string(), "-noverify", "-plist"};
  }
  void waitUntilStarted() const { EXPECT_EQ(contentOf(folder / "started"), "yes\n"); }

 private:
  std::string path_;
};

TEST_F(HdiutilInterrupted, LeavesNothingWhenAskedToStop) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Running running{attaching(), folder / "out", folder / "err"};
    waitUntilStarted();
    EXPECT_THAT(underWay(), testing::SizeIs(1));
    running.signal(signal);
    EXPECT_EQ(running.wait(), 128 + signal);
    EXPECT_EQ(contentOf(folder / "out"), "");
    EXPECT_THAT(mounted(), IsEmpty());
    EXPECT_THAT(underWay(), IsEmpty());
  }
}

TEST_F(HdiutilInterrupted, ClearsWhatAKilledOneLeftAtTheNextLook) {
  {
    Running running{attaching(), folder / "out", folder / "err"};
    waitUntilStarted();
    running.signal(SIGKILL);
    EXPECT_EQ(running.wait(), 128 + SIGKILL);
  }
  EXPECT_THAT(underWay(), testing::SizeIs(1));
  fs::remove(folder / "bin/7zz");
  EXPECT_EQ(attach(file).status, 0);
  EXPECT_THAT(underWay(), IsEmpty());
  EXPECT_THAT(mounted(), ElementsAre("Kelo Brenna"));
}

TEST_F(Hdiutil, DetachesByMountPointOrDisk) {
  const fs::path file = image(source());
  for (const std::string& what :
       {(volumes / "Kelo Brenna").string(), (volumes / "Kelo Brenna/").string(), std::string{"/dev/disk4"},
        std::string{"/dev/disk4s2"}, std::string{"disk4"}}) {
    ASSERT_EQ(attach(file).status, 0);
    const auto detached = detach(what);
    EXPECT_EQ(detached.status, 0) << what << detached.diagnostics;
    EXPECT_EQ(detached.output + detached.diagnostics, "");
    EXPECT_THAT(mounted(), IsEmpty()) << what;
    EXPECT_THAT(underWay(), IsEmpty()) << what;
  }
}

TEST_F(Hdiutil, DetachesNothingButMounts) {
  write("machine/Volumes/A folder/file");
  for (const std::string& what : {(volumes / "A folder").string(), folder.string(), volumes.string(),
                                  std::string{"/dev/disk4"}, std::string{"/"}}) {
    const auto detached = lab({"hdiutil", "detach", what, "-force"});
    EXPECT_EQ(detached.status, 1) << what;
    EXPECT_EQ(detached.diagnostics, "hdiutil: detach failed - No such file or directory\n") << what;
    EXPECT_EQ(detach(what).diagnostics, "") << what;
  }
  EXPECT_TRUE(fs::exists(volumes / "A folder/file"));
}

TEST_F(Hdiutil, DetachesFoldersThatTakeNoEntries) {
  const fs::path made = source();
  write("source/closed/file");
  chmod((made / "closed").c_str(), 0555);
  ASSERT_EQ(attach(image(made)).status, 0);
  chmod((made / "closed").c_str(), 0755);
  EXPECT_EQ(modeOf(volumes / "Kelo Brenna/closed"), 0555U);
  EXPECT_EQ(detach((volumes / "Kelo Brenna").string()).status, 0);
  EXPECT_THAT(mounted(), IsEmpty());
}

TEST_F(Hdiutil, ForgetsAMountThatIsGone) {
  ASSERT_EQ(attach(image(source())).status, 0);
  ASSERT_TRUE(removeTree(volumes / "Kelo Brenna"));
  EXPECT_EQ(lab({"hdiutil", "info"}).output, "");
  EXPECT_EQ(detach("/dev/disk4").status, 1);
}

TEST_F(Hdiutil, TellsWhatIsAttached) {
  const fs::path file = image(source());
  ASSERT_EQ(attach(file).status, 0);
  const auto info = lab({"hdiutil", "info"});
  EXPECT_EQ(info.status, 0);
  EXPECT_THAT(info.output, HasSubstr("image-path      : " + file.string() + "\n"));
  EXPECT_THAT(info.output, HasSubstr("\t" + (volumes / "Kelo Brenna").string() + "\n"));
  EXPECT_THAT(lab({"hdiutil", "info", "-plist"}).output, HasSubstr("<key>images</key>"));
}

TEST_F(Hdiutil, RefusesWhatItDoesNotKnow) {
  const std::vector<Words> rows{{"hdiutil"},
                                {"hdiutil", "frobnicate"},
                                {"hdiutil", "attach"},
                                {"hdiutil", "attach", "a", "b"},
                                {"hdiutil", "attach", "-mountrandom", "a"},
                                {"hdiutil", "detach"},
                                {"hdiutil", "info", "x"}};
  for (const Words& words : rows) {
    const auto outcome = lab(words);
    EXPECT_EQ(outcome.status, 1) << testing::PrintToString(words);
    EXPECT_THAT(outcome.diagnostics, HasSubstr("usage: hdiutil")) << testing::PrintToString(words);
    EXPECT_EQ(outcome.output, "");
  }
  EXPECT_THAT(lab({"hdiutil", "--help"}).output, HasSubstr("usage: hdiutil"));
}

TEST_F(Hdiutil, SaysWhenItsSettingsCannotBeUsed) {
  write("Resources/linux_host.json", "[]");
  const auto outcome = lab({"hdiutil", "info"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.diagnostics, HasSubstr("linux_host.json"));
}

}  // namespace
}  // namespace lab
