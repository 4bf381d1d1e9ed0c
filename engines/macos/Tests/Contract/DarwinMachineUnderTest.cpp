#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <grp.h>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Contract/LoopbackServer.h"
#include "Contract/MachineUnderTest.h"
#include "Platform/Darwin/DarwinHost.h"

namespace installer::test {

namespace {

namespace fs = std::filesystem;

std::string textOf(const Path& file) {
  std::ostringstream text;
  text << std::ifstream{file, std::ios::binary}.rdbuf();
  return text.str();
}

Lines linesIn(const Path& file) {
  Lines lines;
  std::ifstream stream{file};
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

void changeMode(const Path& path, mode_t bits, bool given) {
  struct stat status{};
  ::stat(path.c_str(), &status);
  const auto mode = static_cast<mode_t>(status.st_mode & 07777);
  ::chmod(path.c_str(), static_cast<mode_t>(given ? mode | bits : mode & ~bits));
}

// Drops root's rights, so that permissions apply.
bool dropRights() {
  constexpr unsigned nobody = 65534;
  return ::geteuid() != 0 ||
         (::setgroups(0, nullptr) == 0 && ::setregid(nobody, nobody) == 0 && ::setreuid(nobody, nobody) == 0);
}

// Runs `body` in a forked child, which has one thread; `body` may only use calls that are safe there.
int inChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class DarwinMachineUnderTest : public MachineUnderTest {
 public:
  DarwinMachineUnderTest() {
    std::string pattern = (fs::canonical(fs::temp_directory_path()) / "kelo-host-XXXXXX").string();
    temporary_ = ::mkdtemp(pattern.data());
    fs::permissions(temporary_, fs::perms::all);
    fs::create_directory(folder());
    fs::permissions(folder(), fs::perms::all);
  }
  DarwinMachineUnderTest(const DarwinMachineUnderTest&) = delete;
  DarwinMachineUnderTest& operator=(const DarwinMachineUnderTest&) = delete;
  ~DarwinMachineUnderTest() override {
    for (const auto process : applications_) ::kill(process, SIGKILL);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, SIG_DFL);
    // Restores the permissions of folders that a case has removed.
    std::system(
        fmt::format("chflags -R nouchg '{0}'; chmod -R u+rwX '{0}'; rm -rf '{0}'", temporary_).c_str());
  }

  Machine& machine() override { return host_.machine(); }
  Path folder() override { return at("folder"); }

  void makeLink(const Path& path, const std::string& target) override { fs::create_symlink(target, path); }
  void setWritable(const Path& path, bool writable) override { changeMode(path, 0222, writable); }
  void setReadable(const Path& path, bool readable) override { changeMode(path, 0444, readable); }
  void setExecutable(const Path& path) override { changeMode(path, 0111, true); }
  bool laysForOthers() override { return ::geteuid() == 0; }
  void setImmutable(const Path& path, bool immutable) override {
    EXPECT_EQ(::lchflags(path.c_str(), immutable ? UF_IMMUTABLE : 0), 0) << path;
  }
  void makeSticky(const Path& path) override {
    ::chmod(path.c_str(), 01777);
    EXPECT_EQ(::chown(path.c_str(), 0, 0), 0);
    for (const auto& entry : fs::directory_iterator{path}) EXPECT_EQ(::lchown(entry.path().c_str(), 0, 0), 0);
  }
  void leaveKilledCopy(const Path& path) override {
    inChild([&] {
      beginCopy(path);
      return 0;
    });
  }

  // In this process unless it is root, because a forked child may not use the system's frameworks.
  Lines asOrdinaryUser(const std::function<Lines()>& work) override {
    if (::geteuid() != 0) return work();
    const auto results = at("results");
    const int status = inChild([&] {
      if (!dropRights()) return 99;
      std::ofstream file{results};
      for (const auto& line : work()) file << line << '\n';
      return 0;
    });
    EXPECT_EQ(status, 0) << "the rights couldn't be dropped";
    return linesIn(results);
  }

  Path makeProgram(const std::string& name, const std::string& output, const std::string& errorOutput,
                   int status) override {
    std::ofstream{at(name + ".out"), std::ios::binary} << output;
    std::ofstream{at(name + ".err"), std::ios::binary} << errorOutput;
    return writeScript(joined(folder(), name),
                       fmt::format("cat '{0}.out'\ncat '{0}.err' >&2\nexit {1}\n", at(name), status));
  }
  Path makeEchoProgram(const std::string& name) override {
    return writeScript(joined(folder(), name), "for argument; do printf '%s\\n' \"$argument\"; done\n");
  }

  Written withStandardInput(const std::string& input, const std::function<void()>& work) override {
    std::ofstream{at("stdin"), std::ios::binary} << input;
    const int status = inChild([&] {
      const std::array<std::pair<int, const char*>, 3> streams{{{0, "stdin"}, {1, "stdout"}, {2, "stderr"}}};
      for (const auto& [number, name] : streams) {
        const int file = ::open(at(name).c_str(), number == 0 ? O_RDONLY : O_WRONLY | O_CREAT, 0600);
        ::dup2(file, number);
      }
      work();
      return 0;
    });
    EXPECT_EQ(status, 0) << "the child didn't come to its end";
    return {textOf(at("stdout")), textOf(at("stderr"))};
  }

  // Starts an applet that stays open: only a process that registers with the system is a running application,
  // and only one that serves events gets requests to quit.
  std::int32_t startApplication(const Path& bundle, WhenAsked behaviour) override {
    const auto* const whenAsked = behaviour == WhenAsked::quits ? "continue quit" : "";
    const auto applet = at("applet.app");
    const auto contents = joined(bundle, "Contents");
    const auto executable = joined(contents, "MacOS/app");
    const auto built = std::system(
        fmt::format("rm -rf '{0}' && osacompile -s -o '{0}' -e 'on quit' -e '{1}' -e 'end quit' && "
                    "mkdir -p '{2}/MacOS' && cp '{0}/Contents/MacOS/applet' '{3}' && "
                    "cp -R '{0}/Contents/Resources' '{2}/Resources' && open -g -n '{4}'",
                    applet, whenAsked, contents, executable, bundle)
            .c_str());
    EXPECT_EQ(built, 0) << "the applet couldn't be made";
    std::int32_t process = 0;
    turnUntil([&] {
      process = processOf(executable);
      return process != 0;
    });
    applications_.push_back(process);
    return process;
  }

  bool promptsAreAnswered() override { return false; }
  void dismissPrompts() override {}
  void requestTermination() override { ::kill(::getpid(), SIGTERM); }

  ServerResource& serverResource(const std::string& path) override { return server_.resource(path); }
  std::string urlOf(const std::string& path) override { return server_.urlOf(path); }
  Lines requestsToServer() override { return server_.requests(); }

 private:
  Path temporary_;
  LoopbackServer server_{"127.0.0.1", ""};
  DarwinHost host_;
  std::vector<pid_t> applications_;

  Path at(const std::string& name) const { return joined(temporary_, name); }

  static Path writeScript(const Path& path, const std::string& text) {
    std::ofstream{path} << "#!/bin/sh\n" << text;
    ::chmod(path.c_str(), 0755);
    return path;
  }

  // 0 when there is no such process.
  std::int32_t processOf(const Path& executable) const {
    const auto list = at("processes");
    std::system(fmt::format("pgrep -f '^{}' >'{}'", executable, list).c_str());
    const auto lines = linesIn(list);
    return lines.empty() ? 0 : static_cast<std::int32_t>(std::stol(lines.back()));
  }

  void turnUntil(const std::function<bool()>& done) {
    constexpr int kSlices = 3000;
    for (int slice = 0; slice < kSlices && !done(); ++slice) {
      host_.machine().dispatch.runMainLoop(std::chrono::milliseconds{10});
    }
  }
};

}  // namespace

Implementation realImplementation() {
  return {"Darwin",
          []() -> std::unique_ptr<MachineUnderTest> { return std::make_unique<DarwinMachineUnderTest>(); }};
}

// A cross build for a Mac doesn't have the libraries of the simulation.
std::vector<Implementation> implementations() {
#ifdef KELO_SIMULATED_MACHINE
  return {{"Simulated", &makeSimulatedMachineUnderTest}, realImplementation()};
#else
  return {realImplementation()};
#endif
}

}  // namespace installer::test
