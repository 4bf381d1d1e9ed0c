#include "Platform/Linux/Processes/PrivilegedShell.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fmt/format.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/KeptOutput.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/Spawn.h"
#include "Base/Text.h"

namespace installer {
namespace {

// The shell's program. It reports that it runs (without that report the prompt was refused), then reads one
// command per line, with line feeds and backslashes escaped, and writes each exit status after the command's
// output. It ignores a Ctrl-C at the terminal, which must not interrupt a command; the engine handles it.
constexpr auto kShellProgram = R"(trap '' INT HUP QUIT
IFS= read -r token || exit 0
printf '\n%s ready\n' "$token"
while IFS= read -r escaped; do
  line=$(printf '%b.' "$escaped")
  /bin/sh -c "${line%.}" </dev/null 2>&1
  printf '\n%s %d\n' "$token" "$?"
done)";

constexpr int kPkexecDismissed = 126;
constexpr int kCannotStart = -1;

std::string escaped(const std::string& commandLine) {
  std::string text;
  for (const char byte : commandLine) {
    if (byte == '\\') {
      text += "\\\\";
    } else if (byte == '\n') {
      text += "\\n";
    } else {
      text += byte;
    }
  }
  return text + '\n';
}

std::string freshToken() {
  std::array<unsigned char, 16> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) std::abort();
  return "kelo-" + hexadecimal(bytes);
}

bool isPkexec(const AdministratorPrompt& prompt) {
  return !prompt.command.empty() && lastPathComponent(prompt.command.front()) == "pkexec";
}

// The prompt's command followed by the shell; the shell alone when no prompt is needed.
SpawnRequest requestFor(const AdministratorPrompt& prompt) {
  std::vector<std::string> all;
  if (::geteuid() != 0 || prompt.asksRootToo) all = prompt.command;
  all.insert(all.end(), {"/bin/sh", "-c", kShellProgram});
  SpawnRequest request;
  request.program = all.front();
  request.arguments.assign(all.begin() + 1, all.end());
  // In our own group, so that a prompt on the terminal may read from it.
  request.group = SpawnRequest::Group::shared;
  if (!prompt.askpass.empty()) request.extraEnvironment.push_back("SUDO_ASKPASS=" + prompt.askpass);
  return request;
}

std::string withoutTrailingLineFeeds(std::string text) {
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace

PrivilegedShell::~PrivilegedShell() {
  (void)end();
}

std::optional<PrivilegedShell::Failure> PrivilegedShell::run(const std::string& commandLine) {
  if (commandLine.find('\0') != std::string::npos)
    return Failure{false, EINVAL, "The command contains a NUL"};
  if (!isAlive()) {
    if (auto refused = start()) return refused;
  }
  const bool sent = send(escaped(commandLine));
  const Answer answer = sent ? receive() : Answer{};
  if (!answer.line) {
    const int status = end();
    return Failure{false, status != 0 ? status : kUnknownExitStatus,
                   fmt::format("{}The administrator’s shell ended before the command did", answer.printed)};
  }
  const int status = wholeNumber<int>(*answer.line).value_or(kUnknownExitStatus);
  if (status == 0) return std::nullopt;
  return Failure{false, status, withoutTrailingLineFeeds(answer.printed)};
}

std::optional<PrivilegedShell::Failure> PrivilegedShell::start() {
  // With such a helper sudo would end as after a refusal by the user.
  if (!prompt_.askpass.empty() && ::access(prompt_.askpass.c_str(), X_OK) != 0) {
    return Failure{false, kCannotStart, launchError(errno, prompt_.askpass).localizedDescription};
  }
  if (auto failed = startPrompt()) return failed;
  unread_.clear();
  token_ = freshToken();
  // Failures are ignored: a prompt that has ended doesn't read the token, and its output then ends.
  (void)send(token_ + '\n');
  const Answer answer = receive();
  if (answer.line) return std::nullopt;
  return refusedStart(withoutTrailingLineFeeds(answer.printed));
}

std::optional<PrivilegedShell::Failure> PrivilegedShell::startPrompt() {
  Pipe requests = makePipe();
  Pipe answers = makePipe();
  if (!requests.reading || !answers.reading) return Failure{false, kCannotStart, "No pipe could be created"};
  SpawnRequest request = requestFor(prompt_);
  request.input = requests.reading.get();
  request.output = answers.writing.get();
  request.errorOutput = answers.writing.get();
  const auto child = spawn(request);
  if (!child) {
    return Failure{false, kCannotStart, launchError(child.error(), request.program).localizedDescription};
  }
  process_ = *child;
  requests_ = std::move(requests.writing);
  answers_ = std::move(answers.reading);
  return std::nullopt;
}

// The shell sent no report, so the prompt gave no access. pkexec distinguishes a dismissal (126) from a
// refusal by the machine's rules; for the other prompts each refusal counts as a dismissal.
PrivilegedShell::Failure PrivilegedShell::refusedStart(const std::string& printed) {
  const int status = end();
  const bool dismissed = !isPkexec(prompt_) || status == kPkexecDismissed;
  return {dismissed, status != 0 ? status : kUnknownExitStatus, printed};
}

bool PrivilegedShell::isAlive() {
  if (process_ == 0) return false;
  int status = 0;
  if (::waitpid(process_, &status, WNOHANG) == 0) return true;
  process_ = 0;
  (void)end();
  return false;
}

bool PrivilegedShell::send(const std::string& text) {
  return writeAll(requests_.get(), text);
}

PrivilegedShell::Answer PrivilegedShell::receive() {
  const std::string beginning = '\n' + token_ + ' ';
  KeptOutput printed;
  std::array<char, 65536> buffer;
  for (;;) {
    const auto at = unread_.find(beginning);
    const auto end = at == std::string::npos ? at : unread_.find('\n', at + beginning.size());
    if (end != std::string::npos) {
      printed.append({unread_.data(), at});
      Answer answer{printed.take(), unread_.substr(at + beginning.size(), end - at - beginning.size())};
      unread_.erase(0, end + 1);
      return answer;
    }
    // Output that can't be part of the shell's own line belongs to the command and isn't searched again.
    const auto settled = std::min(at, unread_.size() - std::min(unread_.size(), beginning.size()));
    printed.append({unread_.data(), settled});
    unread_.erase(0, settled);
    const auto count = retryInterrupted([&] { return ::read(answers_.get(), buffer.data(), buffer.size()); });
    if (count <= 0) {
      printed.append(std::exchange(unread_, {}));
      return {printed.take(), std::nullopt};
    }
    unread_.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

int PrivilegedShell::end() {
  requests_.reset();
  answers_.reset();
  const pid_t process = std::exchange(process_, 0);
  return process == 0 ? 0 : waitForExit(process);
}

}  // namespace installer
