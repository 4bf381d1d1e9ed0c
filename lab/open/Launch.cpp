#include "open/Launch.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "support/BundleInfo.h"
#include "support/Descriptor.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void giveUp(int number, int report) {
  (void)!write(report, &number, sizeof number);  // a reader that is gone needs no answer
  _exit(127);
}

// Runs in the grandchild; tells `report` the error number if the program can't be started.
[[noreturn]] void become(const fs::path& program, int report) {
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  std::string path = program.string();
  std::array<char*, 2> arguments{path.data(), nullptr};
  std::signal(SIGPIPE, SIG_DFL);
  if (chdir("/") == 0 && dup2(nothing, 0) == 0 && dup2(nothing, 1) == 1 && dup2(nothing, 2) == 2) {
    execv(arguments[0], arguments.data());
  }
  giveUp(errno, report);
}

// Runs in the child: leaves the caller's session and lets go of the program.
[[noreturn]] void detach(const fs::path& program, int report) {
  setsid();
  const pid_t grandchild = fork();
  if (grandchild < 0) giveUp(errno, report);
  if (grandchild == 0) become(program, report);
  _exit(0);
}

}  // namespace

OrReason<fs::path> mainExecutable(const fs::path& bundle) {
  const auto name = bundleString(bundle, "CFBundleExecutable");
  if (!name) return because("{} names no executable", bundle.string());
  if (name->empty() || name->find('/') != std::string::npos || *name == "." || *name == "..") {
    return because("{} names an executable outside itself", bundle.string());
  }
  return bundle / "Contents" / "MacOS" / *name;
}

OrReason<> launchDetached(const fs::path& program) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return becauseOfErrno("pipe");
  const Descriptor reading{ends[0]};
  Descriptor writing{ends[1]};
  const pid_t child = fork();
  if (child < 0) return becauseOfErrno("fork");
  if (child == 0) detach(program, writing.number());
  writing.reset();
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  int number = 0;
  // The pipe closes without a word when the program has started.
  if (read(reading.number(), &number, sizeof number) != sizeof number) return {};
  return because("{} can't be started: {}", program.string(), std::generic_category().message(number));
}

}  // namespace lab
