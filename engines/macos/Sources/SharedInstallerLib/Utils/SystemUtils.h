// Small facts about the machine, and the disabled telemetry. Any thread.
#pragma once

#include <optional>
#include <string>

#include "Base/Error.h"
#include "Platform/Dispatch.h"

namespace installer::SystemUtils {

// The architecture that the system reports to this process, which may differ from the hardware's.
bool isArm64Architecture();

// True when the publisher's site answers. Blocks for at most `timeout` plus a second.
bool isInternetReachable(Duration timeout);

// True when `error` is a connection failure, so that a wait for the network can help. The list of codes is
// short on purpose. Logs a warning when true.
bool isNetworkConnectionError(const Error& error);

}  // namespace installer::SystemUtils

namespace installer {

// Reports of failures to the publisher. Disabled: nothing is ever sent.
class Telemetry {
 public:
  // Logs that it sends nothing.
  static void report_to_server(const std::string& os, const std::string& e, const std::string& eStr,
                               const std::optional<std::string>& appId);
};

}  // namespace installer
