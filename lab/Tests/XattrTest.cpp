// xattr as the engine runs it, and its other options.
#include "Support.h"
#include "support/Attributes.h"

namespace lab {
namespace {

using test::attributeOf;
using test::Words;
using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr const char* kQuarantine = "com.apple.quarantine";

class Xattr : public test::ProgramTest {
 protected:
  void SetUp() override {
    if (keepsNoAttributes(folder)) GTEST_SKIP() << "this file system keeps no attributes";
    write("App.app/Contents/It's", "x");
    fs::create_symlink("absent", app / "Contents/dangling");
    fs::create_symlink("..", app / "Contents/loop");
    for (const fs::path& path : {app, app / "Contents", app / "Contents/It's"}) {
      ASSERT_TRUE(setAttribute(path, kQuarantine, "0083;x"));
    }
  }
  const fs::path app = folder / "App.app";
};

TEST_F(Xattr, RemovesTheQuarantineMarkFromAWholeBundle) {
  ASSERT_TRUE(setAttribute(app / "Contents/It's", "com.example.kept", "yes"));
  const auto removed = lab({"xattr", "-dr", kQuarantine, app});
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(removed.output + removed.diagnostics, "");
  for (const fs::path& path : {app, app / "Contents", app / "Contents/It's"}) {
    EXPECT_EQ(attributeOf(path, kQuarantine), "(none)") << path;
  }
  EXPECT_EQ(attributeOf(app / "Contents/It's", "com.example.kept"), "yes");
}

TEST_F(Xattr, MissesNoMarkWhenRecursive) {
  EXPECT_EQ(lab({"xattr", "-d", "-r", "com.example.absent", app}).status, 0);
  const auto single = lab({"xattr", "-d", "com.example.absent", app});
  EXPECT_EQ(single.status, 1);
  EXPECT_EQ(single.diagnostics, "xattr: " + app.string() + ": No such xattr: com.example.absent\n");
}

TEST_F(Xattr, FailsOnAMissingPath) {
  const auto missing = lab({"xattr", "-dr", kQuarantine, folder / "absent"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.diagnostics, "xattr: No such file: " + (folder / "absent").string() + "\n");
}

TEST_F(Xattr, GoesOnAfterAMissingPath) {
  EXPECT_EQ(lab({"xattr", "-dr", kQuarantine, folder / "absent", app}).status, 1);
  EXPECT_EQ(attributeOf(app / "Contents/It's", kQuarantine), "(none)");
}

TEST_F(Xattr, DoesNotReachThroughLinks) {
  write("outside", "x");
  ASSERT_TRUE(setAttribute(folder / "outside", kQuarantine, "0083"));
  fs::create_symlink(folder / "outside", app / "Contents/out");
  EXPECT_EQ(lab({"xattr", "-dr", kQuarantine, app}).status, 0);
  EXPECT_EQ(attributeOf(folder / "outside", kQuarantine), "0083");
}

TEST_F(Xattr, SetsShowsAndLists) {
  const fs::path file = app / "Contents/It's";
  EXPECT_EQ(lab({"xattr", "-w", "com.example.a", "one value", file}).status, 0);
  EXPECT_EQ(lab({"xattr", "-p", "com.example.a", file}).output, "one value\n");
  const auto listed = lab({"xattr", "-l", file}).output;
  EXPECT_THAT(listed, HasSubstr("com.example.a: one value\n"));
  EXPECT_THAT(listed, HasSubstr("com.apple.quarantine: 0083;x\n"));
  EXPECT_THAT(lab({"xattr", file}).output, HasSubstr("com.example.a\n"));
  EXPECT_EQ(lab({"xattr", "-p", "com.example.absent", file}).status, 1);
  EXPECT_EQ(lab({"xattr", "-c", file}).status, 0);
  EXPECT_EQ(lab({"xattr", file}).output, "");
}

TEST_F(Xattr, RefusesWhatItDoesNotKnow) {
  for (const Words& words : std::vector<Words>{
           {"xattr"}, {"xattr", "-d"}, {"xattr", "-w", "n", "v"}, {"xattr", "-dz", "n", "f"}}) {
    const auto outcome = lab(words);
    EXPECT_EQ(outcome.status, 1) << testing::PrintToString(words);
    EXPECT_THAT(outcome.diagnostics, HasSubstr("usage: xattr")) << testing::PrintToString(words);
  }
  EXPECT_THAT(lab({"xattr", "--help"}).output, HasSubstr("usage: xattr"));
}

}  // namespace
}  // namespace lab
