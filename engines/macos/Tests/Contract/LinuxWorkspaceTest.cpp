// The registry of applications, used by one and by several processes.
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {

void PrintTo(const RegisteredApplication& application, std::ostream* stream) {
  *stream << application.identifier << " at " << application.path;
}

namespace {

using Entries = std::vector<RegisteredApplication>;

class LinuxRegistry : public testing::Test {
 protected:
  LinuxTestFolder folder;
  Path file = folder / "Library/LaunchServices/registered-applications.json";
  ApplicationRegistry registry{file};
  LinuxPropertyList propertyList;
  LinuxBundles bundles{propertyList, std::nullopt};
  LinuxWorkspace workspace{file, bundles};
};

TEST_F(LinuxRegistry, IsEmptyBeforeTheFirstRegistration) {
  EXPECT_EQ(registry.applications(), Entries{});
  EXPECT_TRUE(registry.remove("/Applications/Brenna.app"));
  EXPECT_EQ(workspace.applicationPath("com.example.brenna"), std::nullopt);
}

TEST_F(LinuxRegistry, KeepsTheOrderAndOneEntryPerPath) {
  ASSERT_TRUE(registry.add({"/a.app", "one"}));
  ASSERT_TRUE(registry.add({"/b.app", "one"}));
  ASSERT_TRUE(registry.add({"/a.app/", "two"}));
  EXPECT_EQ(registry.applications(), (Entries{{"/b.app", "one"}, {"/a.app", "two"}}));
  ASSERT_TRUE(registry.remove("/b.app/"));
  EXPECT_EQ(registry.applications(), (Entries{{"/a.app", "two"}}));
}

TEST_F(LinuxRegistry, RefusesARelativePath) {
  EXPECT_FALSE(registry.add({"a.app", "one"}));
}

TEST_F(LinuxRegistry, AFileThatCannotBeUnderstoodCountsAsEmptyAndIsReplaced) {
  for (const char* const text : {"", "{", "[]", "7", R"({"applications":7})",
                                 R"({"applications":[7,{},{"path":1,"identifier":"x"},{"path":"/x"}]})"}) {
    folder.write("Library/LaunchServices/registered-applications.json", text);
    EXPECT_EQ(registry.applications(), Entries{}) << text;
    ASSERT_TRUE(registry.add({"/a.app", "one"}));
    EXPECT_EQ(registry.applications(), (Entries{{"/a.app", "one"}})) << text;
  }
}

TEST_F(LinuxRegistry, LosesNothingWhenTwoProcessesRegisterAtOnce) {
  constexpr int each = 100;
  const auto registerMany = [&](const char* name) {
    return startChild([this, name] {
      for (int number = 0; number < each; ++number) {
        if (!ApplicationRegistry{file}.add({fmt::format("/{}{}.app", name, number), name})) return 1;
      }
      return 0;
    });
  };
  const pid_t first = registerMany("first");
  const pid_t second = registerMany("second");
  EXPECT_EQ(endOf(first), 0);
  EXPECT_EQ(endOf(second), 0);
  std::set<Path> paths;
  for (const auto& [path, identifier] : registry.applications()) paths.insert(path);
  EXPECT_EQ(paths.size(), 2U * each);
}

// The first process has the number in the name.
TEST_F(LinuxRegistry, ClearsWhatAKilledChangeLeftUnderTheNumberOfALivingProcess) {
  folder.write("Library/LaunchServices/.registered-applications.json.kelo-write-1", "half");
  ASSERT_TRUE(registry.add({"/a.app", "one"}));
  EXPECT_EQ(sortedNames(folder / "Library/LaunchServices"),
            std::vector<std::string>{"registered-applications.json"});
}

TEST_F(LinuxRegistry, TheWorkspaceAnswersWithTheBundleRegisteredLastThatExists) {
  const Path first = folder.makeBundle("First.app", "com.example.brenna", "First");
  const Path second = folder.makeBundle("Second.app", "com.example.brenna", "Second");
  const Path third = folder.makeBundle("Third.app", "com.example.brenna", "Third");
  for (const Path& path : {first, second, third}) workspace.registerBundle(path);
  std::filesystem::remove_all(third);
  EXPECT_EQ(workspace.applicationPath("com.example.brenna"), second);
}

TEST_F(LinuxRegistry, AStaleAnswerIsBetterThanNone) {
  const Path bundle = folder.makeBundle("Brenna.app", "com.example.brenna", "Brenna");
  workspace.registerBundle(bundle);
  std::filesystem::remove_all(bundle);
  EXPECT_EQ(workspace.applicationPath("com.example.brenna"), bundle);
}

TEST_F(LinuxRegistry, RegisteringAgainTakesTheIdentifierOfNow) {
  const Path bundle = folder.makeBundle("App.app", "com.example.brenna", "Brenna");
  workspace.registerBundle(bundle);
  folder.makeBundle("App.app", "com.example.tolvi", "Tolvi");
  workspace.registerBundle(bundle);
  EXPECT_EQ(workspace.applicationPath("com.example.brenna"), std::nullopt);
  EXPECT_EQ(workspace.applicationPath("com.example.tolvi"), bundle);
}

TEST_F(LinuxRegistry, WhatIsNoBundleIsNotRegistered) {
  workspace.registerBundle(folder / "missing.app");
  workspace.registerBundle(folder.makeFolder("silent.app"));
  EXPECT_EQ(registry.applications(), Entries{});
}

}  // namespace
}  // namespace installer::test
