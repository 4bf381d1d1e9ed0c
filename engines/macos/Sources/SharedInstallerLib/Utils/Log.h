// What every room of the engine logs through. Any thread; returns at once; never fails towards its caller.
#pragma once

#include <source_location>
#include <string>
#include <string_view>

namespace installer {

enum class LogLevel { info, warn, error };

// "INFO", "WARN" or "ERROR".
std::string_view rawValue(LogLevel level);

// One line of the log file. `location` is the caller's, given by the compiler.
void log(const std::string& message, LogLevel level = LogLevel::info,
         std::source_location location = std::source_location::current());
void logWarn(const std::string& message, std::source_location location = std::source_location::current());
void logError(const std::string& message, std::source_location location = std::source_location::current());

}  // namespace installer
