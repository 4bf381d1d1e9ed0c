#include "support/ChildProcess.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Base/POSIX/Spawn.h"
#include "support/Interruption.h"

namespace lab {
namespace {

constexpr std::size_t kMostOutput = std::size_t{256} << 20U;

[[noreturn]] void becomeProgram(const std::vector<std::string>& command, pid_t parent, int output,
                                int errors) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(127);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (dup2(nothing, 0) < 0 || dup2(output, 1) < 0 || dup2(errors, 2) < 0) _exit(127);
  std::signal(SIGPIPE, SIG_DFL);
  const sigset_t set = interruptingSignals();
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  setenv("LC_ALL", "C.UTF-8", 1);
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  _exit(errno == ENOENT ? 127 : 126);
}

// Reads once from `from` into `text`; false at the end of the stream.
bool drain(int from, std::string& text) {
  std::array<char, 65536> buffer{};
  const ssize_t count = read(from, buffer.data(), buffer.size());
  if (count < 0) return errno == EINTR || errno == EAGAIN;
  text.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

// Reads both streams to their ends. Fails on a request to stop and on too much output.
OrReason<> collect(int output, int errors, Finished& finished) {
  const sigset_t set = interruptingSignals();
  const installer::FileDescriptor requests{signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)};
  std::array<pollfd, 3> watched{{{output, POLLIN, 0}, {errors, POLLIN, 0}, {requests.get(), POLLIN, 0}}};
  while (watched[0].fd >= 0 || watched[1].fd >= 0) {
    if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) return becauseOfErrno("poll");
    if (interruption() != 0) return because("interrupted");
    if (watched[0].revents != 0 && !drain(output, finished.output)) watched[0].fd = -1;
    if (watched[1].revents != 0 && !drain(errors, finished.diagnostics)) watched[1].fd = -1;
    if (finished.output.size() + finished.diagnostics.size() > kMostOutput)
      return because("its output is too long");
  }
  return {};
}

}  // namespace

OrReason<Finished> runToEnd(const std::vector<std::string>& command) {
  auto output = installer::makePipe();
  auto errors = installer::makePipe();
  if (!output.reading || !errors.reading)
    return because("{} can't be started: no pipe could be created", command.front());
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) return becauseOfErrno(command.front() + " can't be started");
  if (child == 0) becomeProgram(command, parent, output.writing.get(), errors.writing.get());
  output.writing.reset();
  errors.writing.reset();
  Finished finished;
  const auto collected = collect(output.reading.get(), errors.reading.get(), finished);
  if (!collected) kill(child, SIGKILL);
  finished.status = installer::waitForExit(child);
  if (!collected) return because("{}: {}", command.front(), collected.error());
  if (finished.status == 127 && finished.output.empty())
    return because("{} isn't installed", command.front());
  return finished;
}

std::string lastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of(" \n\r");
  if (end == std::string::npos) return {};
  const std::size_t before = text.find_last_of("\n\r", end);
  return text.substr(before == std::string::npos ? 0 : before + 1,
                     end - (before == std::string::npos ? 0 : before + 1) + 1);
}

}  // namespace lab
