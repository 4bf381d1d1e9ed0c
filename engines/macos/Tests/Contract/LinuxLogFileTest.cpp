// The log file under real threads and several real processes.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxHost.h"
#include "Platform/Machine.h"
#include "Utils/Logger.h"

namespace installer::test {
namespace {

constexpr int kProcesses = 3;
constexpr int kThreads = 4;
constexpr int kEntries = 100;  // all entries together are shorter than the limit of the file

LinuxHostSettings settingsIn(const LinuxTestFolder& folder) {
  LinuxHostSettings settings;
  settings.root = folder.path();
  settings.programs = folder / "programs";
  return settings;
}

Path logIn(const LinuxTestFolder& folder) {
  return folder / "Library/Logs/Kelo-Desk-Installer/webinstall.log";
}

void installHostIn(const LinuxTestFolder& folder) {
  auto* const host = new LinuxHost{settingsIn(folder), std::nullopt};  // exists until the child ends
  installMachine(&host->machine());
}

int logFromAllThreads(const LinuxTestFolder& folder, int process) {
  installHostIn(folder);
  std::vector<std::jthread> running;
  for (int thread = 0; thread < kThreads; ++thread) {
    running.emplace_back([process, thread] {
      for (int entry = 0; entry < kEntries; ++entry) {
        log(fmt::format("process {} thread {} entry {}", process, thread, entry));
      }
    });
  }
  running.clear();
  Logger::shared().flush();
  Logger::shared().flush();  // the first is for the entries, this one for a report made while writing them
  return 0;
}

TEST(LinuxLogFile, KeepsLinesWholeAndInOrderWhenProcessesAndThreadsWriteAtOnce) {
  const LinuxTestFolder folder;
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(startChild([&folder, process] { return logFromAllThreads(folder, process); }));
  }
  for (const auto child : children) EXPECT_EQ(endOf(child), 0);

  const std::regex entry{
      R"(\[[-0-9]{10} [:.0-9]{12}\] \[LinuxLogFileTest\.cpp:\d+ [^\]]+\] (process \d thread \d) entry (\d+))"};
  std::map<std::string, int> next;
  int opening = 0;
  std::istringstream lines{textOf(logIn(folder))};
  for (std::string line; std::getline(lines, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, entry)) {
      EXPECT_NE(line.find("[Logger.cpp:"), std::string::npos) << line;
      ++opening;
      continue;
    }
    EXPECT_EQ(std::stoi(parts[2]), next[parts[1]]++) << line;
  }
  EXPECT_EQ(opening, kProcesses * 3);
  ASSERT_EQ(next.size(), static_cast<std::size_t>(kProcesses) * kThreads);
  for (const auto& [writer, count] : next) EXPECT_EQ(count, kEntries) << writer;
}

constexpr int kWriters = 8;
constexpr int kEntriesPerWriter = 1500;  // all entries together exceed the limit several times

int logAlone(const LinuxTestFolder& folder, int writer) {
  installHostIn(folder);
  for (int entry = 0; entry < kEntriesPerWriter; ++entry) {
    log(fmt::format("writer {} entry {} {}", writer, entry, std::string(80, 'x')));
    if (entry % 50 == 0) Logger::shared().flush();
  }
  for (int time = 0; time < 20; ++time) Logger::shared().flush();
  return 0;
}

// A rotation removes the oldest part of each writer's entries; no later entry may be missing.
TEST(LinuxLogFile, LosesNoLineWhenProcessesRotateItAtOnce) {
  const LinuxTestFolder folder;
  folder.write("Library/Logs/Kelo-Desk-Installer/webinstall.log", std::string(511000, 'x') + "\n");
  std::vector<pid_t> children;
  for (int writer = 0; writer < kWriters; ++writer) {
    children.push_back(startChild([&folder, writer] { return logAlone(folder, writer); }));
  }
  for (const auto child : children) EXPECT_EQ(endOf(child), 0);

  const std::regex entry{
      R"(\[[-0-9]{10} [:.0-9]{12}\] \[LinuxLogFileTest\.cpp:\d+ [^\]]+\] writer (\d) entry (\d+) x{80})"};
  std::map<std::string, int> last;
  std::istringstream lines{textOf(logIn(folder))};
  std::string line;
  std::getline(lines, line);  // cut by the rotation
  while (std::getline(lines, line)) {
    std::smatch parts;
    if (!std::regex_match(line, parts, entry)) {
      EXPECT_NE(line.find("[Logger.cpp:"), std::string::npos) << line;
      continue;
    }
    const int number = std::stoi(parts[2]);
    const auto [known, isFirst] = last.try_emplace(parts[1], number);
    if (!isFirst) {
      EXPECT_EQ(number, known->second + 1) << line;
    }
    known->second = number;
  }
  EXPECT_FALSE(last.empty());
  for (const auto& [writer, number] : last) EXPECT_EQ(number, kEntriesPerWriter - 1) << writer;
  EXPECT_EQ(sortedNames(folder / "Library/Logs/Kelo-Desk-Installer"),
            std::vector<std::string>{"webinstall.log"});
}

// All entries must be in the log after several processes reach the limit at once: together they are shorter
// than the part that a rotation keeps.
TEST(LinuxLogFile, KeepsEveryLineOfProcessesThatMeetAtTheLimit) {
  const LinuxTestFolder folder;
  folder.write("Library/Logs/Kelo-Desk-Installer/webinstall.log", std::string(512001, 'x') + "\n");
  std::vector<pid_t> children;
  for (int process = 0; process < kWriters; ++process) {
    children.push_back(startChild([&folder, process] {
      installHostIn(folder);
      log(fmt::format("summary of {}", process));
      Logger::shared().flush();
      Logger::shared().flush();
      return 0;
    }));
  }
  for (const auto child : children) EXPECT_EQ(endOf(child), 0);
  const auto content = textOf(logIn(folder));
  for (int process = 0; process < kWriters; ++process) {
    EXPECT_NE(content.find(fmt::format("] summary of {}\n", process)), std::string::npos) << process;
  }
  const std::string report = "Log file rotated due to size threshold";
  const auto first = content.find(report);
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(content.find(report, first + 1), std::string::npos);
}

TEST(LinuxLogFile, IsCutToItsNewerHalfOnDisk) {
  const LinuxTestFolder folder;
  folder.write("Library/Logs/Kelo-Desk-Installer/webinstall.log", std::string(600000, 'x') + "\n");
  EXPECT_EQ(inChild([&folder] { return logFromAllThreads(folder, 0); }), 0);
  const auto content = textOf(logIn(folder));
  EXPECT_EQ(content.substr(0, 256000), std::string(255999, 'x') + "\n");
  EXPECT_NE(content.find("Log file rotated due to size threshold (600 KB)"), std::string::npos);
  EXPECT_EQ(sortedNames(folder / "Library/Logs/Kelo-Desk-Installer"),
            std::vector<std::string>{"webinstall.log"});
}

}  // namespace
}  // namespace installer::test
