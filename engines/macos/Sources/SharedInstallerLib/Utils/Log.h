// The engine's log functions. Any thread; they return at once and report no failure to the caller.
#pragma once

#include <fmt/core.h>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>

#include "Base/Text.h"

namespace installer {

enum class LogLevel { info, warn, error };

// "INFO", "WARN" or "ERROR".
std::string_view rawValue(LogLevel level);

// Writes one line of the log file. The compiler supplies the caller's `location`.
void log(const std::string& message, LogLevel level = LogLevel::info,
         std::source_location location = std::source_location::current());
void logWarn(const std::string& message, std::source_location location = std::source_location::current());
void logError(const std::string& message, std::source_location location = std::source_location::current());

// Logs a program's output: the line of the failure often has its status only. One line at `info`,
// "{speaker}: {words}"; none for empty output. Not a warning, because the digest of warnings has the line of
// the failure.
inline void logToolWords(std::string_view speaker, std::string_view words,
                         std::source_location location = std::source_location::current()) {
  const auto line = oneLine(words);
  if (!line.empty()) log(fmt::format("{}: {}", speaker, line), LogLevel::info, location);
}

// A format string, checked at compile time against the types of its arguments, and the caller's location.
template <class... Arguments>
struct LogFormat {
  template <class Text>
  consteval LogFormat(const Text& string, std::source_location caller = std::source_location::current())
      : text{string}, location{caller} {}

  fmt::format_string<Arguments...> text;
  std::source_location location;
};

template <class First, class... Rest>
void log(LogFormat<std::type_identity_t<First>, std::type_identity_t<Rest>...> format, First&& first,
         Rest&&... rest) {
  log(fmt::format(format.text, std::forward<First>(first), std::forward<Rest>(rest)...), LogLevel::info,
      format.location);
}
template <class First, class... Rest>
void logWarn(LogFormat<std::type_identity_t<First>, std::type_identity_t<Rest>...> format, First&& first,
             Rest&&... rest) {
  log(fmt::format(format.text, std::forward<First>(first), std::forward<Rest>(rest)...), LogLevel::warn,
      format.location);
}
template <class First, class... Rest>
void logError(LogFormat<std::type_identity_t<First>, std::type_identity_t<Rest>...> format, First&& first,
              Rest&&... rest) {
  log(fmt::format(format.text, std::forward<First>(first), std::forward<Rest>(rest)...), LogLevel::error,
      format.location);
}

// "installer::DMGInstaller::detach" from the compiler's function name: no return type, no arguments. A lambda
// has the name of its enclosing function.
std::string_view qualifiedFunctionName(std::string_view compilerName);

}  // namespace installer
