#include "Engine/InstallerRetirementEvent.h"

#include "Models/InstallerRetirement.h"

namespace installer {

InstallerRetirementEvent InstallerRetirementEvent::of(const InstallerRetirement& retirement) {
  return {.reason = std::string{rawValue(retirement.reason)},
          .downloadUrl = retirement.downloadURL,
          .expiresOn = retirement.expiresOn};
}

std::optional<InstallerRetirementEvent> InstallerRetirementEvent::of(
    const std::optional<InstallerRetirement>& retirement) {
  if (!retirement) return std::nullopt;
  return of(*retirement);
}

}  // namespace installer
