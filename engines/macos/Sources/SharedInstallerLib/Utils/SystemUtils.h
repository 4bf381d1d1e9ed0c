// Small answers about the machine. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Platform/Dispatch.h"
#include "Utils/Log.h"

namespace installer::SystemUtils {

// What the running process is told, not what the hardware is.
bool isArm64Architecture();

// Whether the publisher's site answers at all. Blocks for at most `timeout` and a second.
bool isInternetReachable(Duration timeout);

// Whether `error` means that the connection failed, so that waiting for the network can help. Narrow on
// purpose. Logs when it is one.
bool isNetworkConnectionError(const Error& error);

}  // namespace installer::SystemUtils

namespace installer {

// Reports of failures to the publisher. Switched off: nothing is ever sent.
class Telemetry {
 public:
  // Logs that it sends nothing.
  static void report_to_server(const std::string& os, const std::string& e, const std::string& eStr,
                               const std::optional<std::string>& appId);
};

// What a program said, for the log: the failure's own line often names no more than its status.
// One line at `info`, "{speaker}: {words}", whatever the words hold; none when there are none. Any thread.
// Never a warning: the digest of warnings holds the failure's own line.
void logToolWords(std::string_view speaker, std::string_view words,
                  std::source_location location = std::source_location::current());

}  // namespace installer
