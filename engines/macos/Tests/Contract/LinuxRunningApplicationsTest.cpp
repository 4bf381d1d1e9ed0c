// Real processes that run from bundles.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/POSIX/Spawn.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/Linux/Processes/ProcessHandle.h"
#include "Platform/Linux/Processes/ProcessTable.h"

namespace installer::test {
namespace {

// Each test has its own identifier, so that tests can run at the same time.
class LinuxApps : public testing::Test {
 protected:
  LinuxTestFolder folder;
  std::string identifier = "com.example." + lastPathComponent(folder.path());
  Path bundle = folder.makeBundle("Some App.app", identifier, "Some App");
  LinuxPropertyList propertyList;
  LinuxBundles bundles{propertyList, std::nullopt};
  LinuxRunningApplications apps{bundles, folder.path()};
  std::vector<pid_t> started;

  ~LinuxApps() override {
    for (const pid_t process : started) {
      ::kill(process, SIGKILL);
      ::waitpid(process, nullptr, 0);
    }
  }

  // A program in the bundle that waits for a signal to end.
  Path program(const Path& in) {
    const Path path = in + "/Contents/MacOS/program";
    std::filesystem::copy_file("/bin/sleep", path);
    return path;
  }

  pid_t start(const Path& path, const std::vector<std::string>& arguments = {"1000"}) {
    SpawnRequest request;
    request.program = path;
    request.arguments = arguments;
    const auto child = spawn(request);
    EXPECT_TRUE(child) << path;
    started.push_back(child.value_or(0));
    return started.back();
  }

  int endOfApp(pid_t process) {
    std::erase(started, process);
    return waitForExit(process);
  }

  std::vector<pid_t> running() {
    std::vector<pid_t> found;
    for (const auto& app : apps.instances(identifier)) found.push_back(app.processIdentifier);
    return found;
  }
};

TEST_F(LinuxApps, AProgramOfABundleIsAnInstanceWithTheBundlesName) {
  const pid_t process = start(program(bundle));
  const auto found = apps.instances(identifier);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].processIdentifier, process);
  EXPECT_EQ(found[0].localizedName, "Some App");
  EXPECT_TRUE(apps.instances("com.example.other").empty());
}

TEST_F(LinuxApps, AskedToQuitItGetsSIGTERM) {
  const pid_t process = start(program(bundle));
  apps.terminate(apps.instances(identifier).at(0));
  EXPECT_EQ(endOfApp(process), 128 + SIGTERM);
  EXPECT_TRUE(running().empty());
}

TEST_F(LinuxApps, ForcedItGetsSIGKILL) {
  const pid_t process = start(program(bundle));
  apps.forceTerminate(apps.instances(identifier).at(0));
  EXPECT_EQ(endOfApp(process), 128 + SIGKILL);
}

TEST_F(LinuxApps, AnAppThatHasEndedIsNotRunningAlthoughNobodyCollectedIt) {
  const pid_t process = start(program(bundle));
  ::kill(process, SIGKILL);
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_TRUE(running().empty());
}

TEST_F(LinuxApps, AHandleOfAnEndedAppReachesNobody) {
  const pid_t process = start(program(bundle));
  const auto app = apps.instances(identifier).at(0);
  apps.forceTerminate(app);
  endOfApp(process);
  apps.terminate(app);
  apps.forceTerminate(app);
  EXPECT_FALSE(isRunning(*std::static_pointer_cast<FileDescriptor>(app.handle)));
}

TEST_F(LinuxApps, AScriptOfABundleIsAnInstance) {
  const Path script = folder.write("Some App.app/Contents/MacOS/script", "#!/bin/sh\nread -r line <\"$1\"\n");
  const Path pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0666), 0);
  const pid_t process = start(script, {pipe});
  // A process briefly has no command line after its exec; the open returns when the script runs.
  const FileDescriptor writer{::open(pipe.c_str(), O_WRONLY | O_CLOEXEC)};
  EXPECT_EQ(running(), std::vector{process});
}

TEST_F(LinuxApps, AProgramThatOnlyReadsABundlesScriptIsNone) {
  const Path script = folder.write("Some App.app/Contents/MacOS/script", "#!/bin/sh\n");
  start("/usr/bin/tail", {"-f", script});
  EXPECT_TRUE(running().empty());
}

TEST_F(LinuxApps, AnAppWhoseExecutableWasReplacedIsStillFound) {
  const Path path = program(bundle);
  const pid_t process = start(path);
  std::filesystem::remove(path);
  std::filesystem::copy_file("/bin/sleep", path);
  EXPECT_EQ(running(), std::vector{process});
}

TEST_F(LinuxApps, AnAppThatWasMovedIsFoundWhereItIs) {
  const pid_t process = start(program(bundle));
  std::filesystem::rename(bundle, folder / ".Some App.app.hidden.app");
  EXPECT_EQ(running(), std::vector{process});
}

TEST_F(LinuxApps, AnAppOfAnotherMachineIsNone) {
  start(program(bundle));
  const Path neighbour = folder.path().substr(0, folder.path().size() - 1);
  EXPECT_TRUE((LinuxRunningApplications{bundles, folder / "other"}).instances(identifier).empty());
  EXPECT_TRUE((LinuxRunningApplications{bundles, neighbour}).instances(identifier).empty());
  EXPECT_EQ((LinuxRunningApplications{bundles, "/"}).instances(identifier).size(), 1U);
}

TEST_F(LinuxApps, AHelperInsideABundleIsAnInstanceOfItsOwnBundle) {
  const Path helper =
      folder.makeBundle("Some App.app/Contents/Frameworks/Helper.app", identifier + ".helper", "Helper");
  const pid_t process = start(program(helper));
  EXPECT_TRUE(running().empty());
  EXPECT_EQ(apps.instances(identifier + ".helper").at(0).processIdentifier, process);
}

TEST_F(LinuxApps, ABundleWithoutANameHasNone) {
  folder.write("Some App.app/Contents/Info.plist",
               "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
                   "</string></dict></plist>");
  start(program(bundle));
  EXPECT_EQ(apps.instances(identifier).at(0).localizedName, std::nullopt);
}

TEST(BundleOfExecutable, IsTheInnermostAppAroundContentsMacOS) {
  struct Row {
    Path executable;
    std::optional<Path> bundle;
  };
  const Row rows[] = {
      {"/Applications/Brenna.app/Contents/MacOS/Brenna", "/Applications/Brenna.app"},
      {"/Applications/Brenna.app/Contents/MacOS/deep/er", "/Applications/Brenna.app"},
      {"/A.app/Contents/Frameworks/B.app/Contents/MacOS/b", "/A.app/Contents/Frameworks/B.app"},
      {"/Applications/Brenna.app/Contents/Resources/tool", std::nullopt},
      {"/Applications/.app/Contents/MacOS/x", std::nullopt},
      {"/usr/bin/sleep", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& row : rows) EXPECT_EQ(bundleOfExecutable(row.executable), row.bundle) << row.executable;
}

}  // namespace
}  // namespace installer::test
