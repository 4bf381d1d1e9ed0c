#include "Platform/Linux/Processes/ProcessTable.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "Base/POSIX/FileTree.h"
#include "Base/Text.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

std::optional<Path> linkTarget(const Path& link) {
  std::array<char, PATH_MAX> target{};
  const auto length = ::readlink(link.c_str(), target.data(), target.size());
  if (length <= 0) return std::nullopt;
  return Path{target.data(), static_cast<std::size_t>(length)};
}

std::optional<Path> realPath(const Path& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved{::realpath(path.c_str(), nullptr), &std::free};
  if (resolved == nullptr) return std::nullopt;
  return Path{resolved.get()};
}

std::optional<Path> executableOf(pid_t process) {
  auto path = linkTarget(fmt::format("/proc/{}/exe", process));
  // The executable was replaced or removed while it runs; its bundle may still exist.
  constexpr std::string_view deleted = " (deleted)";
  if (path && path->ends_with(deleted)) path->resize(path->size() - deleted.size());
  return path;
}

// The first arguments of the process. The read is long enough for any path in them.
std::vector<std::string> firstArgumentsOf(pid_t process) {
  constexpr std::size_t enough = 3UL * PATH_MAX;
  std::vector<std::string> arguments;
  auto file = LinuxFileSystem{}.openForReading(fmt::format("/proc/{}/cmdline", process));
  const auto text = file ? (*file)->read(enough) : handOn(file);
  if (!text) return arguments;
  for (std::size_t at = 0; at < text->size();) {
    const auto end = text->find('\0', at);
    arguments.push_back(text->substr(at, end - at));
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return arguments;
}

std::vector<std::string> words(std::string_view line) {
  std::vector<std::string> found;
  while (!line.empty()) {
    const auto start = line.find_first_not_of(" \t\r");
    if (start == std::string_view::npos) break;
    const auto end = line.find_first_of(" \t\r", start);
    found.emplace_back(line.substr(start, end - start));
    line.remove_prefix(end == std::string_view::npos ? line.size() : end);
  }
  return found;
}

// The program named by the first line "#!..." of a script; for "#!/usr/bin/env NAME" the NAME.
std::optional<std::string> interpreterOf(const Path& script) {
  auto file = LinuxFileSystem{}.openForReading(script);
  if (!file) return std::nullopt;
  const auto head = (*file)->read(256);
  if (!head || !head->starts_with("#!")) return std::nullopt;
  const auto parts = words(std::string_view{*head}.substr(2, head->find('\n') - 2));
  if (parts.empty()) return std::nullopt;
  return lastPathComponent(parts[0]) == "env" && parts.size() > 1 ? parts[1] : parts[0];
}

// True when `interpreter` names `executable`. A bare name is looked up in the usual folders of programs.
bool runsAs(const Path& executable, const std::string& interpreter) {
  if (interpreter.starts_with('/')) return realPath(interpreter) == executable;
  for (const char* const folder : {"/usr/local/bin", "/usr/bin", "/bin"}) {
    if (realPath(joined(folder, interpreter)) == executable) return true;
  }
  return false;
}

// The bundle of the script that `executable` runs: an interpreter gets it as its first argument or, after an
// option of the script's first line, its second. The check of the interpreter excludes an editor that has the
// script open.
std::optional<Path> bundleOfScript(pid_t process, const Path& executable) {
  const auto arguments = firstArgumentsOf(process);
  for (std::size_t index = 1; index < arguments.size() && index <= 2; ++index) {
    Path script = arguments[index];
    if (!script.starts_with('/')) {
      const auto folder = linkTarget(fmt::format("/proc/{}/cwd", process));
      if (!folder) return std::nullopt;
      script = joined(*folder, script);
    }
    const auto bundle = bundleOfExecutable(script);
    if (!bundle) continue;
    const auto interpreter = interpreterOf(script);
    if (interpreter && runsAs(executable, *interpreter)) return bundle;
  }
  return std::nullopt;
}

}  // namespace

std::vector<pid_t> visibleProcesses() {
  std::vector<pid_t> found;
  const FileDescriptor processes{::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  const auto names = processes ? namesIn(processes.get()) : std::nullopt;
  if (!names) return found;
  const uid_t user = ::geteuid();
  for (const std::string& name : *names) {
    const auto process = wholeNumber<pid_t>(name);
    if (!process || *process == ::getpid()) continue;
    const auto status = linkStatus(processes.get(), name.c_str());
    if (status && (user == 0 || status->st_uid == user)) found.push_back(*process);
  }
  return found;
}

std::optional<Path> bundleOfExecutable(const Path& executable) {
  constexpr std::string_view inside = ".app/Contents/MacOS/";
  const auto at = executable.rfind(inside);
  if (at == Path::npos || at == 0 || executable[at - 1] == '/') return std::nullopt;
  return executable.substr(0, at + std::string_view{".app"}.size());
}

std::optional<Path> bundleOfProcess(pid_t process) {
  const auto executable = executableOf(process);
  if (!executable) return std::nullopt;
  if (auto bundle = bundleOfExecutable(*executable)) return bundle;
  return bundleOfScript(process, *executable);
}

}  // namespace installer
