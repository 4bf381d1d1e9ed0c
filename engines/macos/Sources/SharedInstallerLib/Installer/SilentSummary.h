// The summary of an unattended run, as lines of the log that a script can find.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace installer {

struct SummaryEntry {
  std::string appName;
  std::string status;
  std::optional<std::string> detail;
};

// Values stand as they are: a quotation mark inside one isn't escaped.
void writeSummary(const std::string& action, const std::vector<SummaryEntry>& entries, std::int32_t exitCode,
                  const std::optional<std::string>& note);

}  // namespace installer
