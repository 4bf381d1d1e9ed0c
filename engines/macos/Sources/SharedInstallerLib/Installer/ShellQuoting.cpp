#include "Installer/ShellQuoting.h"

#include <algorithm>
#include <fmt/format.h>

#include "Platform/Machine.h"

namespace installer {

namespace {

bool isPlainShellCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view{"/._-+"}.find(c) != std::string_view::npos;
}

}  // namespace

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
      continue;
    }
    quoted += c;
  }
  return quoted += '\'';
}

std::string shellProgram(std::string_view path) {
  if (std::ranges::all_of(path, isPlainShellCharacter)) return std::string{path};
  return shellQuoted(path);
}

std::string removalCommand(const Path& path) {
  return fmt::format("{} -rf {}", shellProgram(machine().paths.rm), shellQuoted(path));
}

}  // namespace installer
