// lsregister and open.
#include <sys/stat.h>

#include "Support.h"

namespace lab {
namespace {

using test::contentOf;
using testing::HasSubstr;
namespace fs = std::filesystem;

std::string info(const std::string& identifier, const std::string& executable) {
  return "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
         "</string><key>CFBundleExecutable</key><string>" + executable + "</string></dict></plist>";
}

class Applications : public test::ProgramTest {
 protected:
  void SetUp() override {
    write("machine/Applications/It's.app/Contents/Info.plist", info("com.example.its", "It's"));
  }
  const fs::path app = machine / "Applications/It's.app";
  std::string listed() const { return lab({"lsregister", "-dump"}).output; }
};

TEST_F(Applications, AreRegisteredAndTakenOffTheList) {
  EXPECT_EQ(lab({"lsregister", "-f", app}).status, 0);
  EXPECT_EQ(listed(), "path:       " + app.string() + "\nidentifier: com.example.its\n\n");
  EXPECT_EQ(lab({"lsregister", "-f", app}).status, 0);
  EXPECT_EQ(listed(), "path:       " + app.string() + "\nidentifier: com.example.its\n\n");
  const auto removed = lab({"lsregister", "-u", app});
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(removed.output + removed.diagnostics, "");
  EXPECT_EQ(listed(), "");
}

TEST_F(Applications, AreTakenOffTheListWhenTheyAreGoneFromTheDisk) {
  ASSERT_EQ(lab({"lsregister", "-f", app}).status, 0);
  fs::remove_all(app);
  EXPECT_THAT(listed(), HasSubstr(app.string()));
  EXPECT_EQ(lab({"lsregister", "-u", app}).status, 0);
  EXPECT_EQ(listed(), "");
}

TEST_F(Applications, WithoutAnIdentifierAreNotRegistered) {
  write("machine/Applications/Broken.app/Contents/Info.plist", "no list");
  for (const char* name : {"Broken.app", "Absent.app"}) {
    const auto outcome = lab({"lsregister", "-f", machine / "Applications" / name});
    EXPECT_EQ(outcome.status, 1) << name;
    EXPECT_THAT(outcome.diagnostics, HasSubstr("no bundle with an identifier")) << name;
  }
  EXPECT_EQ(lab({"lsregister", "-u", "/never/known.app"}).status, 0);
  EXPECT_EQ(lab({"lsregister"}).status, 1);
  EXPECT_EQ(lab({"lsregister", "-f"}).status, 1);
  EXPECT_EQ(lab({"lsregister", "-x", app}).status, 1);
  EXPECT_THAT(lab({"lsregister", "--help"}).output, HasSubstr("usage: lsregister"));
}

TEST_F(Applications, WithInformationNestedWithoutEndAreNone) {
  std::string deep;
  for (int i = 0; i < 300'000; ++i) deep += "<array>";
  const fs::path bad = machine / "Applications/Deep.app";
  write("machine/Applications/Deep.app/Contents/Info.plist", "<plist><dict><key>a</key>" + deep);
  const auto registered = lab({"lsregister", "-f", bad});
  EXPECT_EQ(registered.status, 1);
  EXPECT_THAT(registered.diagnostics, HasSubstr("no bundle with an identifier"));
  const auto opened = lab({"open", bad});
  EXPECT_EQ(opened.status, 1);
  EXPECT_THAT(opened.diagnostics, HasSubstr("names no executable"));
}

TEST_F(Applications, AreNotRegisteredBySettingsThatTheEngineRefuses) {
  write("Resources/linux_host.json", R"({"root": "../machine", "Root": "/"})");
  const auto outcome = lab({"lsregister", "-f", app});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.diagnostics, "lsregister: linux_host.json: Root: the key is unknown\n");
}

TEST_F(Applications, AreStartedAndBecomeKnown) {
  const fs::path told = folder / "told";
  ASSERT_EQ(mkfifo(told.c_str(), 0600), 0);
  const fs::path executable = write("machine/Applications/It's.app/Contents/MacOS/It's",
                                    "#!/bin/sh\necho \"$0 $# $PWD\" > '" + told.string() + "'\n", 0755);
  const auto opened = lab({"open", app});
  EXPECT_EQ(opened.status, 0) << opened.diagnostics;
  EXPECT_EQ(contentOf(told), executable.string() + " 0 /\n");
  EXPECT_THAT(listed(), HasSubstr("identifier: com.example.its"));
}

TEST_F(Applications, ThatCannotBeStartedAreToldWithTheReason) {
  struct Row {
    const char* name;
    const char* executable;
    const char* reason;
  };
  const std::vector<Row> rows{
      {"No executable.app", "Absent", "can't be started: No such file or directory"},
      {"Not executable.app", "plain", "can't be started: Permission denied"},
      {"Outside.app", "../../../../../bin/true", "names an executable outside itself"},
      {"Parent.app", "..", "names an executable outside itself"},
      {"Empty name.app", "", "names an executable outside itself"},
  };
  for (const Row& row : rows) {
    const std::string base = std::string{"machine/Applications/"} + row.name + "/Contents/";
    write(base + "Info.plist", info("com.example.bad", row.executable));
    write(base + "MacOS/plain", "#!/bin/sh\n", 0644);
    const auto opened = lab({"open", machine / "Applications" / row.name});
    EXPECT_EQ(opened.status, 1) << row.name;
    EXPECT_THAT(opened.diagnostics, HasSubstr(row.reason)) << row.name;
  }
  const fs::path absent = folder / "Absent.app";
  EXPECT_EQ(lab({"open", absent}).diagnostics, "open: The file " + absent.string() + " does not exist.\n");
  EXPECT_EQ(lab({"open", write("a file")}).status, 1);
  EXPECT_EQ(lab({"open"}).status, 1);
  EXPECT_THAT(lab({"open", "--help"}).output, HasSubstr("usage: open"));
}

}  // namespace
}  // namespace lab
