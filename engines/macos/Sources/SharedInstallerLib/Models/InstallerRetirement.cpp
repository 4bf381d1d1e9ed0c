#include "Models/InstallerRetirement.h"

namespace installer {

std::string_view rawValue(RetirementReason reason) {
  switch (reason) {
    case RetirementReason::expired: return "expired";
    case RetirementReason::sourceUnavailable: return "source-unavailable";
  }
  return {};
}

}  // namespace installer
