#include <gtest/gtest.h>

#include "Installer/PrivilegedRunner.h"
#include "Support/SimulatedMachine.h"

namespace installer::test {
namespace {

TEST(ShellQuoting, MakesOneWordOfAnyPath) {
  struct Row {
    std::string path;
    std::string quoted;
  };
  for (const auto& row : {Row{"/Applications/Brenna.app", "'/Applications/Brenna.app'"}, Row{"", "''"},
                          Row{"/A/Kelo's.app", R"('/A/Kelo'\''s.app')"}, Row{"''", R"(''\'''\''')"},
                          Row{"/A/$(rm -rf ~)`x`\\\"\n;&&.app", "'/A/$(rm -rf ~)`x`\\\"\n;&&.app'"}}) {
    EXPECT_EQ(shellQuoted(row.path), row.quoted) << row.path;
    EXPECT_EQ(shellWords(shellQuoted(row.path)), Lines{row.path}) << row.path;
  }
}

TEST(ShellQuoting, LeavesAPlainProgramAsItStands) {
  EXPECT_EQ(shellProgram("/usr/sbin/chown"), "/usr/sbin/chown");
  EXPECT_EQ(shellProgram("/my tools/rm"), "'/my tools/rm'");
  EXPECT_EQ(shellProgram("/tools;x/rm"), "'/tools;x/rm'");
}

TEST(ShellQuoting, RemovesWithTheMachinesOwnProgram) {
  SimulatedMachine mac;
  EXPECT_EQ(removalCommand("/Applications/Kelo's.app"), R"(/bin/rm -rf '/Applications/Kelo'\''s.app')");
}

}  // namespace
}  // namespace installer::test
