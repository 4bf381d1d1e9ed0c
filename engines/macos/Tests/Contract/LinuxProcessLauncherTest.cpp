// Tests for real processes only: full pipes, remaining descendants, signals, descriptors.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/KeptOutput.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {
namespace {

class LinuxPrograms : public testing::Test {
 protected:
  LinuxTestFolder folder;
  LinuxProcessLauncher launcher;

  ProgramExit shell(const std::string& line, CapturedOutput captured = CapturedOutput::separate) {
    auto exit = launcher.run("/bin/sh", {"-c", line}, captured);
    EXPECT_TRUE(exit);
    return exit ? *std::move(exit) : ProgramExit{};
  }
};

TEST_F(LinuxPrograms, AChattyProgramDoesNotHang) {
  const auto exit = shell("head -c 10485760 /dev/zero; head -c 10485760 /dev/zero >&2; exit 3");
  EXPECT_EQ(exit.status, 3);
  for (const auto& bytes : {exit.output, exit.errorOutput}) {
    EXPECT_EQ(std::ranges::count(bytes, '\0'), static_cast<std::ptrdiff_t>(KeptOutput::kLongest));
    EXPECT_NE(bytes.find("[9961472 bytes omitted]"), std::string::npos);
  }
}

TEST_F(LinuxPrograms, AChattyProgramWhoseOutputNobodyWantsDoesNotHang) {
  const auto exit = shell("head -c 10485760 /dev/zero; exit 3", CapturedOutput::none);
  EXPECT_EQ(exit.status, 3);
  EXPECT_EQ(exit.output, "");
}

TEST_F(LinuxPrograms, MergedStreamsKeepTheOrderOfTheirArrival) {
  EXPECT_EQ(shell("echo 1; echo 2 >&2; echo 3", CapturedOutput::merged).output, "1\n2\n3\n");
}

TEST_F(LinuxPrograms, ADescendantThatKeepsTheOutputOpenDoesNotHoldUpTheAnswer) {
  const auto exit = shell("sleep 1000 & echo $!");
  const pid_t descendant = std::atoi(exit.output.c_str());
  ASSERT_GT(descendant, 0);
  EXPECT_EQ(exit.status, 0);
  EXPECT_EQ(::kill(descendant, SIGKILL), 0) << "it should still have been there";
}

TEST_F(LinuxPrograms, AProgramThatClosesItsOutputIsStillWaitedFor) {
  EXPECT_EQ(shell("exec >&- 2>&-; read -r line </proc/self/stat; exit 4").status, 4);
}

TEST_F(LinuxPrograms, ASignalsEndIsToldLikeAShellTellsIt) {
  EXPECT_EQ(shell("kill -KILL $$").status, 128 + SIGKILL);
}

TEST_F(LinuxPrograms, AProgramHasTheUsualSignalsAlthoughTheEngineIgnoresSome) {
  ::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(shell("kill -PIPE $$").status, 128 + SIGPIPE);
}

TEST_F(LinuxPrograms, AProgramGetsNoDescriptorsButItsStreams) {
  const int leaked = ::dup(0);  // without close-on-exec
  const auto exit = shell("echo /proc/self/fd/*");
  ::close(leaked);
  // The shell lists its own descriptors, and the listing has the folder open as one more.
  EXPECT_EQ(exit.output.find("/proc/self/fd/4"), std::string::npos) << exit.output;
}

TEST_F(LinuxPrograms, StandardInputIsEmpty) {
  EXPECT_EQ(shell("cat; echo end").output, "end\n");
}

TEST_F(LinuxPrograms, AProgramIsOutOfReachOfTheTerminalsCtrlC) {
  const auto exit = shell("read -r pid name state parent group rest </proc/self/stat; echo $group");
  EXPECT_NE(std::atoi(exit.output.c_str()), ::getpgrp()) << exit.output;
}

TEST_F(LinuxPrograms, ArgumentsReachTheProgramAsTheyAre) {
  const auto exit = launcher.run("/bin/echo", {"$HOME", "a  b", "'", "*", ""}, CapturedOutput::separate);
  ASSERT_TRUE(exit);
  EXPECT_EQ(exit->output, "$HOME a  b ' * \n");
}

struct LaunchFailure {
  const char* what;
  Path program;
  std::string_view domain;
  std::int64_t code;
};

TEST_F(LinuxPrograms, AProgramThatCannotBeStartedIsALaunchError) {
  const Path plain = folder.write("plain", "no program");
  const Path headless = folder.write("headless", "echo no interpreter named\n");
  ASSERT_EQ(::chmod(headless.c_str(), 0755), 0);
  const LaunchFailure rows[] = {
      {"missing", folder / "missing", ErrorDomain::cocoa, CocoaError::fileNoSuchFile},
      {"below a file", plain + "/x", ErrorDomain::cocoa, CocoaError::fileNoSuchFile},
      {"interpreter missing", folder.write("orphan", "#!/nonexistent/sh\n"), ErrorDomain::cocoa,
       CocoaError::fileNoSuchFile},
      {"not executable", plain, ErrorDomain::posix, EACCES},
      {"a folder", folder.path(), ErrorDomain::posix, EACCES},
      {"no program format", headless, ErrorDomain::posix, ENOEXEC},
      {"relative", "bin/true", ErrorDomain::posix, EINVAL},
      {"NUL inside", std::string{"/bin/true\0x", 11}, ErrorDomain::posix, EINVAL},
  };
  for (const auto& row : rows) {
    const auto ran = launcher.run(row.program, {}, CapturedOutput::merged);
    ASSERT_FALSE(ran) << row.what;
    EXPECT_TRUE(ran.error().is(row.domain, row.code)) << row.what << ": " << ran.error().localizedDescription;
    const auto launched = launcher.launch(row.program, {});
    ASSERT_FALSE(launched) << row.what;
    EXPECT_TRUE(launched.error().is(row.domain, row.code)) << row.what;
  }
}

TEST_F(LinuxPrograms, ALaunchedProgramBelongsToNobodyHere) {
  const Path pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0666), 0);
  ASSERT_TRUE(launcher.launch("/bin/sh", {"-c", "echo $PPID >\"$0\"", pipe}));
  const int parent = std::atoi(textOf(pipe).c_str());
  EXPECT_GT(parent, 0);
  EXPECT_NE(parent, ::getpid());
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "a launched program must not remain our child";
}

}  // namespace
}  // namespace installer::test
