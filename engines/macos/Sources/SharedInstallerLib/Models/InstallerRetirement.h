// The verdict that this installer as a whole is stale, and where a current one is to be had.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace installer {

enum class RetirementReason {
  expired,           // the build's last day of validity has passed
  sourceUnavailable  // the CDN tree is gone while the outside world can be reached
};

// "expired" or "source-unavailable".
std::string_view rawValue(RetirementReason reason);

struct InstallerRetirement {
  RetirementReason reason = RetirementReason::expired;
  std::string downloadURL;               // the configured download page, as text
  std::optional<std::string> expiresOn;  // the date as configured; absent for `sourceUnavailable`

  friend bool operator==(const InstallerRetirement&, const InstallerRetirement&) = default;
};

}  // namespace installer
