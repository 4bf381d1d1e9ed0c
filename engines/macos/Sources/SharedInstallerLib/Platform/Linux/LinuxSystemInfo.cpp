#include <fmt/format.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

utsname systemName() {
  utsname name{};
  ::uname(&name);
  return name;
}

// The value of PRETTY_NAME in the text of os-release, without its quotes; empty when there is none.
std::string prettyName(std::string_view text) {
  constexpr std::string_view key = "PRETTY_NAME=";
  while (!text.empty()) {
    const auto end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    const bool quoted =
        line.size() >= 2 && line.front() == line.back() && (line[0] == '"' || line[0] == '\'');
    return std::string{quoted ? line.substr(1, line.size() - 2) : line};
  }
  return {};
}

std::string distribution() {
  for (const char* const place : {"/etc/os-release", "/usr/lib/os-release"}) {
    const auto text = LinuxFileSystem{}.readFile(place);
    if (text) return prettyName(*text);
  }
  return {};
}

}  // namespace

std::string LinuxSystemInfo::machineField() {
  const utsname name = systemName();
  const std::string machine = static_cast<const char*>(name.machine);
  return machine == "aarch64" ? "arm64" : machine;
}

std::string LinuxSystemInfo::operatingSystemVersionString() {
  const utsname name = systemName();
  const std::string kernel =
      fmt::format("{} {}", static_cast<const char*>(name.sysname), static_cast<const char*>(name.release));
  const std::string pretty = distribution();
  return pretty.empty() ? kernel : fmt::format("{}, {}", pretty, kernel);
}

std::uint32_t LinuxSystemInfo::userIdentifier() {
  return ::getuid();
}

std::uint32_t LinuxSystemInfo::groupIdentifier() {
  return ::getgid();
}

std::int32_t LinuxSystemInfo::processIdentifier() {
  return ::getpid();
}

}  // namespace installer
