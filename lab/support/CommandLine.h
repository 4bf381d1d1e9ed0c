// The command lines of the lab's own programs. Only a program's main.cpp includes this, because CLI11 takes
// seconds to compile.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <optional>
#include <type_traits>

#include "support/OrReason.h"

namespace lab {

// Reads the command line and runs the callbacks of its options and subcommand. Returns the exit status when
// the program ends with that: 0 after --help, `usageStatus` after an error, which it prints.
inline std::optional<int> readCommandLine(CLI::App& program, int argc, char** argv, int usageStatus = 64) {
  try {
    program.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& end) {
    if (end.get_exit_code() == 0) return program.exit(end);
    std::string command = program.get_name();
    for (const CLI::App* chosen : program.get_subcommands()) command += " " + chosen->get_name();
    const auto unknown = program.remaining(true);
    const std::string reason =
        unknown.empty() ? end.what() : fmt::format("'{}' isn't understood", unknown.front());
    fmt::print(stderr, "{}: {}; see {} --help\n", program.get_name(), reason, command);
    return usageStatus;
  }
}

// For the callbacks: the value, or an error of the command line.
template <class T>
T orUsageError(OrReason<T> value) {
  if (!value) throw CLI::ValidationError(value.error());
  if constexpr (!std::is_void_v<T>) return std::move(*value);
}

}  // namespace lab
