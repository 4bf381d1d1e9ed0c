#include "Installer/SilentSummary.h"

#include <fmt/format.h>

#include "Utils/Log.h"

namespace installer {

void writeSummary(const std::string& action, const std::vector<SummaryEntry>& entries, std::int32_t exitCode,
                  const std::optional<std::string>& note) {
  log(fmt::format("--- SILENT RUN SUMMARY action={} exit_code={} ---", action, exitCode));
  for (const auto& entry : entries) {
    auto line = fmt::format("  app=\"{}\" status={}", entry.appName, entry.status);
    if (entry.detail) line += fmt::format(" detail=\"{}\"", *entry.detail);
    log(line);
  }
  if (note) log(fmt::format("  note=\"{}\"", *note));
  log("--- END SUMMARY ---");
}

}  // namespace installer
