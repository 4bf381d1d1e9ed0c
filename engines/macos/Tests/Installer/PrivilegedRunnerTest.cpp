#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Installer/DMGInstaller.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/Machine.h"
#include "Support/SimulatedMachine.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kFallbackLine =
    "INFO DMGInstaller: shared privileged runner unavailable — falling back to a per-command script (the "
    "user "
    "may be prompted again)";

class PrivilegedCommands : public ::testing::Test {
 protected:
  SimulatedMachine mac;

  AdminOutcome run(const std::string& command) {
    return DMGInstaller::runWithAdminPrivilegesOutcome(command);
  }
};

TEST_F(PrivilegedCommands, ShareOneScriptObject) {
  run("/bin/rm -rf '/a'");
  run("/bin/rm -rf '/b'");
  EXPECT_EQ(
      mac.administrator.sources(),
      (Lines{"on runCommand(cmd)\n    do shell script cmd with administrator privileges\nend runCommand"}));
  EXPECT_EQ(mac.administrator.handlers(), (Lines{"runCommand", "runCommand"}));
  EXPECT_EQ(mac.administrator.commandLines(), (Lines{"/bin/rm -rf '/a'", "/bin/rm -rf '/b'"}));
}

TEST_F(PrivilegedCommands, MakeNoScriptBeforeTheFirstOfThem) {
  EXPECT_EQ(mac.administrator.scriptsMade(), 0U);
}

TEST_F(PrivilegedCommands, ReachTheShellUnchanged) {
  const std::string command = R"(/bin/rm -rf "/a\"b" '\\')";
  run(command);
  EXPECT_EQ(mac.administrator.commandLines(), Lines{command});
}

TEST_F(PrivilegedCommands, EndInOneOfThreeOutcomes) {
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::succeeded);
  mac.administrator.dismissesNext();
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::cancelled);
  mac.administrator.failsNext(-1);
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::failed);
  mac.administrator.failsNextWithoutNumber();
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::failed);
  EXPECT_EQ(run("/usr/bin/unknown"), AdminOutcome::failed);
  EXPECT_EQ(mac.administrator.scriptsMade(), 1U);
}

TEST_F(PrivilegedCommands, FallBackToAScriptOfTheirOwnWhenTheSharedOneCannotBeAddressed) {
  mac.administrator.noTarget();
  const std::string command = R"(a\"b)";
  EXPECT_EQ(run(command), AdminOutcome::failed);
  ASSERT_EQ(mac.administrator.scriptsMade(), 2U);
  EXPECT_EQ(mac.administrator.sources()[1], R"(do shell script "a\\\"b" with administrator privileges)");
  EXPECT_EQ(mac.administrator.commandLines(), Lines{command});
  EXPECT_EQ(mac.logLines(kFallbackLine).size(), 1U);
}

TEST_F(PrivilegedCommands, TellARefusalOfTheFallbackFromAFailure) {
  mac.administrator.noTarget();
  mac.administrator.dismissesNext();
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::cancelled);
  EXPECT_EQ(mac.logLines(),
            (Lines{kFallbackLine, "INFO DMGInstaller: admin authorization dismissed by the user"}));
}

TEST_F(PrivilegedCommands, CountAsASuccessWhenNoScriptCanBeMade) {
  mac.administrator.cannotMakeScripts();
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::succeeded);
  EXPECT_EQ(mac.administrator.commandLines(), Lines{});
  EXPECT_EQ(mac.logLines(), Lines{kFallbackLine});
}

TEST_F(PrivilegedCommands, DoNotAskAgainForASharedScriptThatCouldNotBeMade) {
  mac.administrator.cannotMakeScripts();
  run("/bin/rm -rf '/a'");
  mac.administrator.cannotMakeScripts(false);
  run("/bin/rm -rf '/b'");
  EXPECT_EQ(mac.administrator.sources(),
            (Lines{R"(do shell script "/bin/rm -rf '/b'" with administrator privileges)"}));
}

// Calls to the main queue return without running their work, as at the end of a process.
class DispatchWithoutHops : public SimulatedDispatch {
 public:
  bool isMainThread() override { return false; }
  void syncMain(const Work&) override {}
};

TEST_F(PrivilegedCommands, CountAsFailedWhenTheirWorkNeverRuns) {
  Machine& usual = machine();
  DispatchWithoutHops withoutHops;
  Machine changed{usual.paths,
                  usual.files,
                  usual.streams,
                  usual.processes,
                  usual.sessions,
                  withoutHops,
                  usual.bundles,
                  usual.propertyList,
                  usual.workspace,
                  usual.runningApplications,
                  usual.administratorScripts,
                  usual.systemInfo,
                  usual.digest,
                  usual.signals};
  installMachine(&changed);
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::failed);
  installMachine(&usual);
  EXPECT_EQ(mac.administrator.scriptsMade(), 0U);
}

TEST_F(PrivilegedCommands, RunInPlaceOnTheMainThread) {
  bool queueWasServed = false;
  mac.dispatch.asyncMain([&] { queueWasServed = true; });
  EXPECT_EQ(run("/bin/rm -rf '/a'"), AdminOutcome::succeeded);
  EXPECT_FALSE(queueWasServed);
}

TEST_F(PrivilegedCommands, OfTwoWorkersRunOneAfterTheOtherOnTheMainThread) {
  mac.administrator.takes(3s);
  int finished = 0;
  for (const std::string path : {"/a", "/b"}) {
    mac.dispatch.asyncGlobal(QualityOfService::userInitiated, [&, path] {
      EXPECT_EQ(run("/bin/rm -rf '" + path + "'"), AdminOutcome::succeeded);
      ++finished;
    });
  }
  mac.dispatch.runUntil([&] { return finished == 2; });
  EXPECT_EQ(mac.dispatch.elapsed(), 6s);
  EXPECT_FALSE(mac.administrator.calledOffMainThread());
  EXPECT_EQ(mac.administrator.commandLines().size(), 2U);
  EXPECT_EQ(mac.administrator.scriptsMade(), 1U);
}

TEST_F(PrivilegedCommands, BlockTheirWorkerUntilTheirEnd) {
  mac.administrator.takes(30s);
  mac.dispatch.runOnWorker([&] { run("/bin/rm -rf '/a'"); });
  EXPECT_EQ(mac.dispatch.elapsed(), 30s);
}

TEST(AdminOutcome, IsReadFromTheErrorDictionary) {
  struct Row {
    ScriptErrorDictionary error;
    AdminOutcome outcome;
    Lines log;
  };
  const Lines dismissed{"INFO DMGInstaller: admin authorization dismissed by the user"};
  const auto failed = [](const std::string& description) {
    return Lines{"ERROR DMGInstaller: Admin command error: " + description};
  };
  const std::string key = AdministratorScript::kErrorNumberKey;
  for (const auto& row : std::vector<Row>{
           {std::nullopt, AdminOutcome::succeeded, {}},
           {Json{{key, -128}}, AdminOutcome::cancelled, dismissed},
           {Json{{key, -128.0}}, AdminOutcome::cancelled, dismissed},
           {Json{{key, -1}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":-1})")},
           {Json{{key, 1e300}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":1e+300})")},
           {Json{{key, "-128"}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":"-128"})")},
           {Json{{key, nullptr}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":null})")},
           {Json{{"Message", "no"}}, AdminOutcome::failed, failed(R"({"Message":"no"})")},
           {Json::object(), AdminOutcome::failed, failed("{}")},
           {Json::array(), AdminOutcome::failed, failed("[]")},
           {Json{{"Message", "\xff"}}, AdminOutcome::failed, failed("{\"Message\":\"\xEF\xBF\xBD\"}")},
       }) {
    SimulatedMachine mac;
    EXPECT_EQ(adminOutcome(row.error), row.outcome) << row.log.size();
    EXPECT_EQ(mac.logLines(), row.log);
  }
}

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
