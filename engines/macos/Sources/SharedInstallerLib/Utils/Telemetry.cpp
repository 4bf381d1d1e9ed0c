#include "Utils/Telemetry.h"

#include "Utils/Log.h"

namespace installer {

void Telemetry::report_to_server(const std::string& /*os*/, const std::string& /*e*/,
                                 const std::string& /*eStr*/, const std::optional<std::string>& /*appId*/) {
  log("Telemetry disabled (no user consent flow yet) — skipping report");
}

}  // namespace installer
