// Reports of failures to the publisher. Switched off: nothing is ever sent.
#pragma once

#include <optional>
#include <string>

namespace installer {

class Telemetry {
 public:
  // Logs that it sends nothing.
  static void report_to_server(const std::string& os, const std::string& e, const std::string& eStr,
                               const std::optional<std::string>& appId);
};

}  // namespace installer
