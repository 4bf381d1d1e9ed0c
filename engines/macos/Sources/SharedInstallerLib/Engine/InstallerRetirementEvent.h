// The verdict that this installer is stale, as it goes out on the wire.
#pragma once

#include <optional>
#include <string>

namespace installer {

struct InstallerRetirement;

struct InstallerRetirementEvent {
  std::string reason;                    // "expired" or "source-unavailable"
  std::string downloadUrl;               // where a current installer can be had
  std::optional<std::string> expiresOn;  // the last valid day, yyyy-MM-dd

  static InstallerRetirementEvent of(const InstallerRetirement& retirement);
  static std::optional<InstallerRetirementEvent> of(const std::optional<InstallerRetirement>& retirement);

  friend bool operator==(const InstallerRetirementEvent&, const InstallerRetirementEvent&) = default;
};

}  // namespace installer
