#include "Utils/Log.h"

#include "Utils/Logger.h"

namespace installer {

std::string_view rawValue(LogLevel level) {
  switch (level) {
    case LogLevel::info: return "INFO";
    case LogLevel::warn: return "WARN";
    case LogLevel::error: return "ERROR";
  }
  return {};
}

void log(const std::string& message, LogLevel level, std::source_location location) {
  Logger::shared().log(message, level, location.file_name(), location.line(),
                       qualifiedFunctionName(location.function_name()));
}

void logWarn(const std::string& message, std::source_location location) {
  log(message, LogLevel::warn, location);
}

void logError(const std::string& message, std::source_location location) {
  log(message, LogLevel::error, location);
}

std::string_view qualifiedFunctionName(std::string_view compilerName) {
  // The arguments begin at the first parenthesis outside names and template arguments.
  static constexpr std::string_view kAnonymous = "(anonymous";
  std::size_t nameStart = 0;
  std::size_t end = compilerName.size();
  int depth = 0;
  for (std::size_t i = 0; i < compilerName.size(); ++i) {
    const char c = compilerName[i];
    if (c == '<') ++depth;
    if (c == '>') --depth;
    if (depth > 0) continue;
    if (compilerName.substr(i).starts_with(kAnonymous)) {
      i += compilerName.substr(i).find(')');
      continue;
    }
    if (c == ' ' || c == '*' || c == '&') nameStart = i + 1;
    if (c == '(') {
      end = i;
      break;
    }
  }
  return compilerName.substr(nameStart, end - nameStart);
}

}  // namespace installer
