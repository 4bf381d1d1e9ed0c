// Whole runs in which one call across the seam fails: a run for each failure of each call.
#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

#include "EngineCLI/CommandLineFixture.h"
#include "Support/Sample.h"

namespace installer {
namespace {

using enum AppIdentifier;
using test::Lines;

// A run whose calls fail one by one.
struct Scenario {
  std::string name;
  std::vector<std::string> arguments;
  std::function<void()> prepare;
  Path appPath;  // the path of the run's app
};

// The disk between two runs.
struct Disk {
  std::map<std::string, std::string> app;  // the bundle at the app's path; empty when there is none
  Lines names;                             // of all items on the disk
};

// A part of a run, from a call with this beginning and a path with this text on.
struct Phase {
  std::string_view operation;
  std::string_view path;
  Lines left;  // the states of the app's path that a failed run may leave; empty where no run may fail
};

// An old bundle is replaced without a backup, so from the copy on a failed install leaves no app. A removal
// stages the bundle, and puts it back while it is whole. A failing command of the administrator's command
// line doesn't undo the earlier ones.
const std::array kPhases{
    Phase{"run hdiutil attach", "", {"as before"}},
    Phase{"run codesign", " /Volumes/", {"as before"}},
    Phase{"move", " /Applications/", {"as before"}},
    Phase{"remove", " /Applications/", {"as before", "no app"}},
    Phase{"copy", " /Volumes/", {"no app"}},
    Phase{"administrator", "", {"as before", "goal"}},
    Phase{"root's remove", " /Applications/.", {"as before", "no app"}},
    Phase{"root's remove", " /Applications/", {"as before", "half", "no app"}},
    Phase{"root's copy", " /Volumes/", {"no app"}},
    Phase{"run codesign", " /Applications/", {"no app"}},
    Phase{"run xattr", "", {}},
    Phase{"run lsregister", "", {}},
};

// The phase of the call at `index`. Before the calls of the table, a run only reads.
const Phase& phaseAt(const std::vector<test::FaultPlan::Call>& calls, std::size_t index) {
  static const Phase reading{"reading", "", {"as before"}};
  for (auto at = index + 1; at-- > 0;) {
    const auto begins = [&call = calls[at].name](const Phase& phase) {
      return call.starts_with(phase.operation) && call.find(phase.path) != std::string::npos;
    };
    const auto* const phase = std::ranges::find_if(kPhases, begins);
    if (phase != kPhases.end()) return *phase;
  }
  return reading;
}

// Whether the call at `index` fails in a way that leaves an image attached: its mount point isn't known, or
// it isn't detached.
bool leavesImage(const std::vector<test::FaultPlan::Call>& calls, std::size_t index) {
  const auto starts = [&](std::size_t at, const char* name) { return calls[at].name.starts_with(name); };
  const bool parsesAttached = index > 0 && starts(index, "parse") && starts(index - 1, "run hdiutil attach");
  return parsesAttached || starts(index, "run hdiutil attach") || starts(index, "run hdiutil detach");
}

Lines without(Lines lines, const Lines& others) {
  std::erase_if(lines, [&](const auto& line) { return std::ranges::find(others, line) != others.end(); });
  return lines;
}

// Shortens a call: "copy /Volumes/X/X.app -> /Applications/X.app" to "copy in /Applications", "run hdiutil
// attach /x.dmg" to "run hdiutil attach", "GET https://host/folder/x.dmg" to "GET x.dmg".
std::string operationOf(const std::string& call) {
  const auto service = call.substr(0, call.find(' '));
  if (service == "GET" || service == "HEAD") return service + " " + lastPathComponent(call);
  if (service == "administrator" || service == "makeScript") return service;
  if (service == "run") return call.substr(0, call.find_first_of("-/", service.size()) - 1);
  const auto path = call.rfind(" /");
  if (path == std::string::npos) return call;
  const auto operation = call.substr(0, std::min(path, call.find(" /")));
  for (const auto* place :
       {"/Library/Logs", "/Volumes/Installer", "/Volumes", "/Applications", "/private/tmp"}) {
    if (call.find(place, path) != std::string::npos) return fmt::format("{} in {}", operation, place);
  }
  return operation;
}

class CrashPoints : public test::CommandLineTest {
 protected:
  void everyFaultOf(const Scenario& scenario);

 private:
  Scenario scenario_;
  Disk before_;
  Disk goal_;
  test::FaultPlan::Call call_;    // the failing call
  const Phase* phase_ = nullptr;  // its phase
  bool mayLeaveImage_ = false;
  Lines wrong_;                          // the faults found after its failure
  std::map<std::string, int> outcomes_;  // rows of the table, with their numbers
  test::Sample sample_;

  void expect(bool holds, const std::string& otherwise) {
    if (!holds) wrong_.push_back(otherwise);
  }
  void lay();
  std::int32_t runToItsEnd();
  Disk look() const { return {machine.files.snapshot(scenario_.appPath), machine.files.tree("/")}; }
  void tryFault(std::size_t index, std::size_t fault);
  std::string judgeEvents(std::int32_t exitStatus);
  Lines statesOf(const Disk& disk) const;
  std::string judgeDisk(const std::string& status, const Disk& disk);
  void judgeNextRun(const Disk& disk);
  void report(std::size_t calls) const;
};

void CrashPoints::lay() {
  startAfresh(machine);
  machine.network.on(std::string{Deployment::connectivityProbeURL}).answers(200);
  scenario_.prepare();
}

std::int32_t CrashPoints::runToItsEnd() {
  const auto exitStatus = run(scenario_.arguments);
  machine.dispatch.runUntilIdle();
  machine.faults.stop();
  return exitStatus;
}

// Checks that the events and the exit status agree. Returns the app's status.
std::string CrashPoints::judgeEvents(std::int32_t exitStatus) {
  const auto done = machine.streams.events("done");
  expect(done.size() == 1, fmt::format("{} events of type done", done.size()));
  if (done.size() != 1) return {};
  expect(machine.streams.events().back() == done[0], "events after done");
  expect(done[0]["exitCode"] == exitStatus, fmt::format("exit status {}", exitStatus));
  expect(done[0]["results"].size() == 1, "not one result");
  const auto status = done[0]["results"].at(0).value("status", "");
  const auto results = machine.streams.events("app-result");
  expect(results.size() == 1 && results[0]["status"] == status, "another app-result than in done");
  expect((exitStatus == 0) == (status != "failed"), fmt::format("exit status {} for {}", exitStatus, status));
  return status;
}

// All that apply to the app's path, never empty.
Lines CrashPoints::statesOf(const Disk& disk) const {
  Lines states;
  if (disk.app == goal_.app) states.emplace_back("goal");
  if (disk.app == before_.app) states.emplace_back("as before");
  if (disk.app.empty()) states.emplace_back("no app");
  return states.empty() ? Lines{"half"} : states;
}

// Checks that the disk agrees with the status and with the phase of the failing call. Returns the outcome.
std::string CrashPoints::judgeDisk(const std::string& status, const Disk& disk) {
  const auto states = statesOf(disk);
  const auto outcome = fmt::format("{}, {}", status, states[0]);
  expect(status == "failed" || states[0] == "goal", outcome + " is untrue");
  const bool isExpected = std::ranges::find_first_of(states, phase_->left) != states.end();
  expect(status != "failed" || isExpected,
         fmt::format("{} after a failure in the phase '{}'", outcome, phase_->operation));
  expect(mayLeaveImage_ || machine.images.attached().empty(), "an image stays attached");
  return outcome;
}

// Checks that the next run reaches the goal and removes the fault's leftovers on `disk`, and that the log has
// their names.
void CrashPoints::judgeNextRun(const Disk& disk) {
  machine.startNextProcess();
  expect(runToItsEnd() == 0, "the next run fails");
  const auto after = look();
  expect(after.app == goal_.app, "the next run doesn't end in the goal state");
  expect(machine.images.attached().empty(), "the next run leaves an image attached");
  // The next run doesn't find a numbered copy that isn't registered, and makes one with the next number.
  const bool isLost = call_.name.starts_with("registerBundle") && scenario_.appPath.ends_with(" 2.app");
  const auto left = without(after.names, goal_.names);
  expect(isLost || left.empty(), fmt::format("the next run leaves {}", fmt::join(left, ", ")));
  const auto lost = without(goal_.names, after.names);
  expect(lost.empty(), fmt::format("the next run misses {}", fmt::join(lost, ", ")));

  const auto remains = without(without(disk.names, before_.names), goal_.names);
  if (remains.empty() || call_.name.find(machine.logFile()) != std::string::npos) return;
  const auto name = lastPathComponent(remains[0].substr(0, remains[0].find_last_not_of('/') + 1));
  const auto log = machine.files.read(machine.logFile());
  const bool isNamed = log.find(name) != std::string::npos ||
                       log.find("interrupted run beside " + scenario_.appPath) != std::string::npos;
  expect(isNamed, name + " isn't in the log");
}

void CrashPoints::tryFault(std::size_t index, std::size_t fault) {
  lay();
  wrong_.clear();
  machine.faults.fail(index, fault);
  const auto exitStatus = runToItsEnd();
  const auto& calls = machine.faults.calls();
  call_ = calls.at(index);
  phase_ = &phaseAt(calls, index);
  mayLeaveImage_ = leavesImage(calls, index);
  const auto events = transcript();
  const auto disk = look();
  const auto outcome = judgeDisk(judgeEvents(exitStatus), disk);
  judgeNextRun(disk);

  const auto& failure = call_.faults.at(fault);
  ++outcomes_[fmt::format("{}\t{}\t{}\t{}", scenario_.name, operationOf(call_.name), failure, outcome)];
  if (wrong_.empty()) return;
  ADD_FAILURE() << fmt::format("seed {}, {}, call {}: {}, failing with {}: {}\n{}\n", sample_.seed(),
                               scenario_.name, index, call_.name, failure, fmt::join(wrong_, "; "),
                               fmt::join(events, "\n"))
                << machine.files.read(machine.logFile());
}

void CrashPoints::everyFaultOf(const Scenario& scenario) {
  scenario_ = scenario;
  lay();
  before_ = look();
  machine.faults.record();
  ASSERT_EQ(runToItsEnd(), 0);
  goal_ = look();
  const auto calls = machine.faults.calls();
  for (std::size_t index = 0; index < calls.size(); ++index) {
    // The engine can't distinguish an unreadable receipt from a missing one.
    if (calls[index].name.ends_with("_MASReceipt/receipt")) continue;
    for (std::size_t fault = 0; fault < calls[index].faults.size(); ++fault) {
      if (sample_.takes(4)) tryFault(index, fault);
    }
  }
  report(calls.size());
}

// Appends the rows to the file of the variable KELO_FAULT_TABLE.
void CrashPoints::report(std::size_t calls) const {
  int runs = 0;
  for (const auto& [row, count] : outcomes_) runs += count;
  fmt::print("{}: {} calls, {} faults tried, seed {}\n", scenario_.name, calls, runs, sample_.seed());
  const char* const table = std::getenv("KELO_FAULT_TABLE");
  if (table == nullptr) return;
  std::ofstream file{table, std::ios::app};
  for (const auto& [row, count] : outcomes_) file << fmt::format("{}\t{}\n", row, count);
}

const Path kBrenna = "/Applications/Brenna.app";
const std::vector<std::string> kInstall{"run", "--action", "install", "--apps", "brenna", "--offline"};
const std::vector<std::string> kRemoval{"run", "--action", "uninstall", "--apps", "brenna"};

TEST_F(CrashPoints, OfAnInstallOverNothing) {
  everyFaultOf({"install", kInstall, [this] { addBesideInstaller(brenna, "2.0"); }, kBrenna});
}

TEST_F(CrashPoints, OfAnUpgrade) {
  const auto prepare = [this] {
    addInstalled(brenna, "1.0");
    addBesideInstaller(brenna, "2.0");
  };
  everyFaultOf({"upgrade", kInstall, prepare, kBrenna});
}

TEST_F(CrashPoints, OfAnInstallBesideAnAppStoreVariant) {
  const auto prepare = [this] {
    machine.addRegisteredApp(kBrenna,
                             {.identifier = "com.kelo.store", .version = "1.0", .appStoreReceipt = true});
    addBesideInstaller(brenna, "2.0");
  };
  everyFaultOf({"install beside an App Store variant", kInstall, prepare, "/Applications/Brenna 2.app"});
}

TEST_F(CrashPoints, OfAnEscalatedInstall) {
  const auto prepare = [this] {
    addInstalled(brenna, "1.0");
    addBesideInstaller(brenna, "2.0");
    machine.files.setWritable("/Applications", false);
  };
  everyFaultOf({"escalated install", kInstall, prepare, kBrenna});
}

TEST_F(CrashPoints, OfARemoval) {
  everyFaultOf({"removal", kRemoval, [this] { addInstalled(brenna, "1.0"); }, kBrenna});
}

TEST_F(CrashPoints, OfAnEscalatedRemoval) {
  const auto prepare = [this] {
    addInstalled(brenna, "1.0");
    machine.files.setWritable("/Applications", false);
  };
  everyFaultOf({"escalated removal", kRemoval, prepare, kBrenna});
}

TEST_F(CrashPoints, OfARemovalEscalatedWhenStaged) {
  const auto prepare = [this] {
    addInstalled(brenna, "1.0");
    machine.files.setWritable(joined(kBrenna, "Contents/MacOS"), false);
  };
  everyFaultOf({"removal escalated when staged", kRemoval, prepare, kBrenna});
}

TEST_F(CrashPoints, OfAnOnlineInstall) {
  const auto prepare = [this] {
    configureCDN();
    offer(brenna, "arm64", "2.0");
  };
  everyFaultOf({"online install", {"run", "--action", "install", "--apps", "brenna"}, prepare, kBrenna});
}

}  // namespace
}  // namespace installer
