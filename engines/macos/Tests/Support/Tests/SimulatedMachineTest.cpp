#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/ProcessWide.h"
#include "Support/SimulatedMachine.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;

class SimulatedMachineTest : public ::testing::Test {
 protected:
  SimulatedMachine machine;
};

TEST_F(SimulatedMachineTest, AttachesAnImageByItsBytes) {
  const auto bytes = machine.images.add("/tmp/a.dmg", "/Volumes/A", [&](auto&, const Path& mountPoint) {
    machine.addApp(joined(mountPoint, "A.app"), {.identifier = "test.a", .version = "1.2"});
  });
  machine.files.addFile("/elsewhere/copy.dmg", bytes);
  auto exit = machine.programs.run(machine.paths.hdiutil, {"attach", "/elsewhere/copy.dmg", "-plist"},
                                   CapturedOutput::separate);
  const auto printed = machine.propertyList.parse(exit->output);
  EXPECT_EQ(printed->at("system-entities").at(1).at("mount-point"), "/Volumes/A");
  EXPECT_EQ(machine.bundles.read("/Volumes/A/A.app")->bundleIdentifier(), "test.a");
  EXPECT_FALSE(machine.files.removeItem("/Volumes/A/A.app"));
  EXPECT_TRUE(
      machine.programs.run(machine.paths.hdiutil, {"detach", "/Volumes/A", "-force"}, CapturedOutput::none));
  EXPECT_FALSE(machine.files.exists("/Volumes/A"));
  EXPECT_EQ(machine.images.history(), (Lines{"attach /Volumes/A", "detach /Volumes/A"}));
}

TEST_F(SimulatedMachineTest, RefusesAnImageThatIsNone) {
  machine.files.addFile("/tmp/a.dmg", "garbage");
  const auto exit =
      machine.programs.run(machine.paths.hdiutil, {"attach", "/tmp/a.dmg"}, CapturedOutput::separate);
  EXPECT_EQ(exit->status, 1);
}

TEST_F(SimulatedMachineTest, RunsProgramsAsScripted) {
  machine.programs.on("/bin/x").exits(0, "out", "err").exitsNext(7).cannotLaunchNext("not today");
  EXPECT_EQ(machine.programs.run("/bin/x", {"1"}, CapturedOutput::merged)->status, 7);
  EXPECT_EQ(machine.programs.run("/bin/x", {"2"}, CapturedOutput::merged).error().localizedDescription,
            "not today");
  EXPECT_EQ(machine.programs.run("/bin/x", {"3"}, CapturedOutput::merged)->output, "outerr");
  EXPECT_FALSE(machine.programs.run("/bin/unknown", {}, CapturedOutput::none));
  EXPECT_EQ(machine.programs.commandLines(), (Lines{"x 1", "x 2", "x 3", "unknown"}));
}

TEST_F(SimulatedMachineTest, RefusesWhatATestCallsUngenuine) {
  machine.addApp("/A.app", {.identifier = "test.a"});
  machine.addApp("/B.app", {.identifier = "test.b"});
  machine.verdicts.refuse(SimulatedVerdicts::Check::requirement, "/A.app");
  const auto status = [this](const Arguments& arguments) {
    return machine.programs.run(machine.paths.codesign, arguments, CapturedOutput::merged)->status;
  };
  EXPECT_EQ(status({"--verify", "-R", "=x", "/A.app"}), 3);
  EXPECT_EQ(status({"--verify", "/A.app"}), 0);
  EXPECT_EQ(status({"--verify", "-R", "=x", "/B.app"}), 0);
  EXPECT_EQ(status({"--verify", "/Nothing.app"}), 1);
}

TEST_F(SimulatedMachineTest, IsTheOnlyOneOfItsTime) {
  EXPECT_THROW(SimulatedMachine{}, std::logic_error);
}

TEST_F(SimulatedMachineTest, CarriesOutAGrantedCommandLine) {
  machine.addApp("/Volumes/A/It's.app", {.identifier = "test.a"});
  machine.addApp("/Applications/It's.app", {.identifier = "test.old"});
  machine.files.setWritable("/Applications", false);
  const std::string command =
      R"(/bin/rm -rf '/Applications/It'\''s.app' && /usr/bin/ditto --noqtn '/Volumes/A/It'\''s.app' )"
      R"('/Applications/It'\''s.app' && /usr/sbin/chown -R 501:20 '/Applications/It'\''s.app')";
  const auto script = machine.administrator.make("on runCommand(cmd)");
  EXPECT_FALSE(script->callHandler("runCommand", command).value().has_value());
  EXPECT_EQ(machine.bundles.read("/Applications/It's.app")->bundleIdentifier(), "test.a");
  EXPECT_FALSE(machine.files.runsAsRoot());
}

TEST_F(SimulatedMachineTest, StopsACommandLineAtItsFirstFailure) {
  machine.files.addFile("/Applications/a");
  const auto script = machine.administrator.make(
      R"(do shell script "/bin/false && /bin/rm -rf '/Applications/a'" with administrator privileges)");
  EXPECT_TRUE(script->execute().has_value());
  EXPECT_TRUE(machine.files.exists("/Applications/a"));
  EXPECT_EQ(machine.administrator.commandLines(), Lines{"/bin/false && /bin/rm -rf '/Applications/a'"});
}

TEST_F(SimulatedMachineTest, DismissesThePromptWithoutRunningAnything) {
  machine.files.addFile("/Applications/a");
  machine.administrator.dismissesNext();
  const auto script = machine.administrator.make("on runCommand(cmd)");
  const auto outcome = script->callHandler("runCommand", "/bin/rm -rf /Applications/a");
  EXPECT_EQ(outcome.value()->at(AdministratorScript::kErrorNumberKey), -128);
  EXPECT_TRUE(machine.files.exists("/Applications/a"));
}

TEST_F(SimulatedMachineTest, QuitsRunningAppsInVirtualTime) {
  machine.runningApps.launch("test.a", "A", 11, QuitBehaviour::quits(2s));
  machine.runningApps.launch("test.a", std::nullopt, 12, QuitBehaviour::ignoresQuit());
  for (const auto& app : machine.runningApps.instances("test.a")) machine.runningApps.terminate(app);
  machine.dispatch.advance(1s);
  EXPECT_TRUE(machine.runningApps.isRunning(11));
  machine.dispatch.advance(1s);
  EXPECT_FALSE(machine.runningApps.isRunning(11));
  machine.runningApps.forceTerminate(machine.runningApps.instances("test.a").front());
  EXPECT_FALSE(machine.runningApps.isRunning(12));
  EXPECT_EQ(machine.runningApps.requestLines(), (Lines{"terminate 11", "terminate 12", "forceTerminate 12"}));
}

TEST_F(SimulatedMachineTest, FeedsStandardInputAtAVirtualMoment) {
  Lines heard;
  machine.dispatch.detachThread([&] {
    while (const auto line = machine.streams.readLine()) heard.push_back(*line);
    heard.emplace_back("end");
  });
  machine.streams.feedLine("first");
  machine.streams.feedLineAt(3s, "second");
  machine.streams.closeInputAt(4s);
  machine.dispatch.advance(1s);
  EXPECT_EQ(heard, Lines{"first"});
  machine.dispatch.advance(5s);
  EXPECT_EQ(heard, (Lines{"first", "second", "end"}));
}

TEST_F(SimulatedMachineTest, ParsesEventsAmongOtherLines) {
  machine.streams.writeOutput("not json\n{\"type\":\"hello\"}\n{\"type\":\"done\",\"exitCode\":0}\n");
  EXPECT_EQ(machine.streams.events().size(), 2U);
  EXPECT_EQ(machine.streams.events("done").at(0).at("exitCode"), 0);
}

TEST_F(SimulatedMachineTest, TakesStampsOffTheLog) {
  machine.files.addFile(
      machine.logFile(),
      "[2026-03-01 12:00:00.000] [Logger.cpp:1 Logger] Logging initialized for Kelo WebInstaller\n"
      "[2026-03-01 12:00:00.000] [A.cpp:1 f(x: [y])] plain [text]\n"
      "[2026-03-01 12:00:00.000] [WARN] [A.cpp:1 f] careful\nrest of it\n");
  EXPECT_EQ(machine.logLines(), (Lines{"INFO plain [text]", "WARN careful", "rest of it"}));
}

TEST(SimulatedMachines, GiveProcessWideValuesAfresh) {
  static int made = 0;
  static ProcessWide<int> value{[] { return std::make_unique<int>(++made); }};
  for (int machines = 1; machines <= 2; ++machines) {
    const SimulatedMachine machine;
    EXPECT_EQ(value.get(), machines);
    EXPECT_EQ(value.get(), machines);
  }
}

}  // namespace
}  // namespace installer::test
