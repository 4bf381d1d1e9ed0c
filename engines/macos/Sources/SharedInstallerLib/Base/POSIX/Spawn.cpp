#include "Base/POSIX/Spawn.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>

#include "Base/POSIX/FileErrors.h"

namespace installer {

namespace {

// Arguments for the exec functions: pointers into `strings`, which must outlive them, and a final null.
std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> list;
  list.reserve(strings.size() + 1);
  for (std::string& text : strings) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

std::vector<std::string> argumentVector(const Path& program, const std::vector<std::string>& arguments) {
  std::vector<std::string> all{program};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& extra) {
  std::vector<std::string> all = extra;
  for (char** entry = environ; *entry != nullptr; ++entry) all.emplace_back(*entry);
  return all;
}

// The path must be absolute. A text with a NUL would be cut there.
bool isLaunchable(const Path& program, const std::vector<std::string>& arguments) {
  const auto hasNul = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  return program.starts_with('/') && !hasNul(program) && std::ranges::none_of(arguments, hasNul);
}

struct SpawnActions {
  posix_spawn_file_actions_t files{};
  posix_spawnattr_t attributes{};

  explicit SpawnActions(const SpawnRequest& request) {
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    give(request.input, STDIN_FILENO, O_RDONLY);
    give(request.output, STDOUT_FILENO, O_WRONLY);
    give(request.errorOutput, STDERR_FILENO, O_WRONLY);
    ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);

    sigset_t signals{};
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (request.group == SpawnRequest::Group::own) flags |= POSIX_SPAWN_SETPGROUP;
    ::posix_spawnattr_setflags(&attributes, flags);
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() {
    ::posix_spawn_file_actions_destroy(&files);
    ::posix_spawnattr_destroy(&attributes);
  }

 private:
  void give(int descriptor, int stream, int nullMode) {
    if (descriptor < 0) {
      ::posix_spawn_file_actions_addopen(&files, stream, "/dev/null", nullMode, 0);
      return;
    }
    ::posix_spawn_file_actions_adddup2(&files, descriptor, stream);
  }
};

// This and `becomeDetached` run in the child of a process with threads: only async-signal-safe calls are
// allowed.
void resetSignals() {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none{};
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void becomeDetached(char** arguments, int reportTo) {
  const auto giveUp = [&] {
    const int number = errno;
    (void)!::write(reportTo, &number, sizeof number);
    ::_exit(127);
  };
  ::setsid();
  const pid_t program = ::fork();
  if (program < 0) giveUp();
  if (program > 0) ::_exit(0);

  const int null = ::open("/dev/null", O_RDWR);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::dup2(null, stream) < 0) giveUp();
  }
  resetSignals();
  // Closes all descriptors but `reportTo`, which a successful exec closes.
  ::close_range(STDERR_FILENO + 1, static_cast<unsigned>(reportTo) - 1, 0);
  ::close_range(static_cast<unsigned>(reportTo) + 1, ~0U, 0);
  ::execv(arguments[0], arguments);
  giveUp();
  ::_exit(127);
}

}  // namespace

Expected<pid_t, int> spawn(const SpawnRequest& request) {
  if (!isLaunchable(request.program, request.arguments)) return std::unexpected(EINVAL);
  auto arguments = argumentVector(request.program, request.arguments);
  auto environment = environmentWith(request.extraEnvironment);
  const SpawnActions actions{request};
  pid_t child = 0;
  const int failure = ::posix_spawn(&child, request.program.c_str(), &actions.files, &actions.attributes,
                                    pointers(arguments).data(), pointers(environment).data());
  if (failure != 0) return std::unexpected(failure);
  return child;
}

Expected<void, int> spawnDetached(const Path& program, const std::vector<std::string>& arguments) {
  if (!isLaunchable(program, arguments)) return std::unexpected(EINVAL);
  auto all = argumentVector(program, arguments);
  const auto list = pointers(all);
  Pipe report = makePipe();
  if (!report.reading) return std::unexpected(errno);
  // The reporting end must not have the number of a stream that the child replaces.
  FileDescriptor writing{::fcntl(report.writing.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
  if (!writing) return std::unexpected(errno);
  report.writing.reset();

  const pid_t child = ::fork();
  if (child < 0) return std::unexpected(errno);
  if (child == 0) becomeDetached(const_cast<char**>(list.data()), writing.get());
  writing.reset();
  (void)waitForExit(child);
  int failure = 0;
  const auto told = retryInterrupted([&] { return ::read(report.reading.get(), &failure, sizeof failure); });
  if (told > 0) return std::unexpected(failure);
  return {};
}

Error launchError(int number, const Path& program) {
  const bool isMissing = number == ENOENT || number == ENOTDIR;
  const auto domain = isMissing ? ErrorDomain::cocoa : ErrorDomain::posix;
  const auto code = isMissing ? CocoaError::fileNoSuchFile : number;
  return {std::string{domain}, code,
          fmt::format("“{}” couldn’t be started: {} ({} {}, {})", lastPathComponent(program),
                      errnoText(number), domain, code, program),
          nullptr};
}

int exitStatusOf(int waitStatus) {
  return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

int waitForExit(pid_t child) {
  int status = 0;
  if (retryInterrupted([&] { return ::waitpid(child, &status, 0); }) != child) return kUnknownExitStatus;
  return exitStatusOf(status);
}

Pipe makePipe() {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
  return {FileDescriptor{ends[0]}, FileDescriptor{ends[1]}};
}

}  // namespace installer
