#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <linux/fs.h>
#include <optional>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Contract/LinuxTestFolder.h"
#include "Contract/LoopbackServer.h"
#include "Contract/MachineUnderTest.h"
#include "Platform/Linux/LinuxHost.h"
#include "Support/SimulatedStreams.h"

namespace installer::test {

namespace {

namespace fs = std::filesystem;
using test::LinuxTestFolder;

constexpr auto kServer = "server.example.test";

void changeMode(const Path& path, mode_t bits, bool given) {
  struct stat status{};
  ::stat(path.c_str(), &status);
  ::chmod(path.c_str(), given ? (status.st_mode & 07777U) | bits : status.st_mode & 07777U & ~bits);
}

class LinuxMachineUnderTest : public MachineUnderTest {
 public:
  LinuxMachineUnderTest() {
    for (const auto* const name : {"host", "host/folder", "programs"}) {
      fs::create_directory(at(name));
      fs::permissions(at(name), fs::perms::all);
    }
    // The prompt grants until the file exists.
    const auto prompt = writeScript(at("programs/prompt"),
                                    fmt::format("[ -e '{}' ] && exit 1\nexec \"$@\"\n", at("dismissed")));
    host_.emplace(
        LinuxHostSettings{.root = at("host"),
                          .programs = at("programs"),
                          .extraCertificateAuthority = at("authority.pem"),
                          .hostAddresses = {{kServer, "127.0.0.1"}},
                          .administrator = {.command = {prompt}, .askpass = "", .asksRootToo = true}},
        std::nullopt);
  }
  LinuxMachineUnderTest(const LinuxMachineUnderTest&) = delete;
  LinuxMachineUnderTest& operator=(const LinuxMachineUnderTest&) = delete;
  ~LinuxMachineUnderTest() override {
    for (const auto& path : immutable_) {
      if (fs::exists(path)) setImmutable(path, false);
    }
    for (const auto process : applications_) {
      ::kill(process, SIGKILL);
      ::waitpid(process, nullptr, 0);
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, SIG_DFL);
  }

  Machine& machine() override { return host_->machine(); }
  Path folder() override { return at("host/folder"); }

  void makeLink(const Path& path, const std::string& target) override { fs::create_symlink(target, path); }
  void setWritable(const Path& path, bool writable) override { changeMode(path, 0222, writable); }
  void setReadable(const Path& path, bool readable) override { changeMode(path, 0444, readable); }
  void setExecutable(const Path& path) override { changeMode(path, 0111, true); }
  bool laysForOthers() override { return ::geteuid() == 0; }
  void setImmutable(const Path& path, bool immutable) override {
    const FileDescriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    int flags = immutable ? FS_IMMUTABLE_FL : 0;
    EXPECT_EQ(::ioctl(file.get(), FS_IOC_SETFLAGS, &flags), 0) << path;
    if (immutable) immutable_.push_back(path);
  }
  void makeSticky(const Path& path) override {
    ::chmod(path.c_str(), 01777);
    EXPECT_EQ(::chown(path.c_str(), 0, 0), 0);
    for (const auto& entry : fs::directory_iterator{path}) EXPECT_EQ(::lchown(entry.path().c_str(), 0, 0), 0);
  }
  void leaveKilledCopy(const Path& path) override {
    test::inChild([&] {
      beginCopy(path);
      return 0;
    });
  }

  Lines asOrdinaryUser(const std::function<Lines()>& work) override {
    const auto results = at("results");
    std::ofstream{results}.close();
    fs::permissions(results, fs::perms::all);
    const int status = test::withoutRights([&] {
      std::ofstream file{results};
      for (const auto& line : work()) file << line << '\n';
      return 0;
    });
    EXPECT_EQ(status, 0) << "the rights couldn't be dropped";
    return linesOf(test::textOf(results));
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
    const int status = test::inChild([&] {
      const std::array<std::pair<int, const char*>, 3> streams{{{0, "stdin"}, {1, "stdout"}, {2, "stderr"}}};
      for (const auto& [number, name] : streams) {
        const int file = ::open(at(name).c_str(), number == 0 ? O_RDONLY : O_WRONLY | O_CREAT, 0600);
        ::dup2(file, number);
      }
      work();
      return 0;
    });
    EXPECT_EQ(status, 0) << "the child didn't come to its end";
    return {test::textOf(at("stdout")), test::textOf(at("stderr"))};
  }

  // The executable is a copy of `sleep`, so that the process runs from the bundle.
  std::int32_t startApplication(const Path& bundle, WhenAsked behaviour) override {
    const auto executable = joined(bundle, "Contents/MacOS/app");
    fs::create_directories(parentFolder(executable));
    fs::copy_file("/bin/sleep", executable, fs::copy_options::skip_existing);
    std::array<int, 2> started{};
    if (::pipe2(started.data(), O_CLOEXEC) != 0) throw std::runtime_error{"no pipe"};
    const auto child = ::fork();
    if (child == 0) {
      if (behaviour == WhenAsked::ignores) ::signal(SIGTERM, SIG_IGN);
      ::execl(executable.c_str(), executable.c_str(), "600", nullptr);
      ::_exit(127);
    }
    ::close(started[1]);
    char byte = 0;
    (void)!::read(started[0], &byte, 1);  // ends at the program's exec
    ::close(started[0]);
    applications_.push_back(child);
    return child;
  }

  void dismissPrompts() override { std::ofstream{at("dismissed")}.close(); }
  void requestTermination() override { ::kill(::getpid(), SIGTERM); }

  ServerResource& serverResource(const std::string& path) override { return server_.resource(path); }
  std::string urlOf(const std::string& path) override { return server_.urlOf(path); }
  Lines requestsToServer() override { return server_.requests(); }

 private:
  LinuxTestFolder temporary_;
  LoopbackServer server_{kServer, at("authority.pem")};
  std::optional<LinuxHost> host_;
  std::vector<pid_t> applications_;
  std::vector<Path> immutable_;

  Path at(const std::string& name) const { return temporary_ / name; }

  static Path writeScript(const Path& path, const std::string& text) {
    std::ofstream{path} << "#!/bin/sh\n" << text;
    ::chmod(path.c_str(), 0755);
    return path;
  }
};

}  // namespace

Implementation realImplementation() {
  return {"Linux",
          []() -> std::unique_ptr<MachineUnderTest> { return std::make_unique<LinuxMachineUnderTest>(); }};
}

std::vector<Implementation> implementations() {
  return {{"Simulated", &makeSimulatedMachineUnderTest}, realImplementation()};
}

}  // namespace installer::test
