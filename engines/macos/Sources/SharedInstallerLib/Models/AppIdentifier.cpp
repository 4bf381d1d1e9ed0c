#include "Models/AppIdentifier.h"

#include <algorithm>

namespace installer {

std::string_view rawValue(AppIdentifier identifier) {
  switch (identifier) {
    case AppIdentifier::brenna: return "brenna";
    case AppIdentifier::tolvi: return "tolvi";
    case AppIdentifier::rulo: return "rulo";
    case AppIdentifier::galdivane: return "galdivane";
  }
  return {};
}

std::optional<AppIdentifier> AppIdentifiers::fromRawValue(std::string_view text) {
  const auto* const match =
      std::ranges::find_if(allCases, [text](AppIdentifier each) { return rawValue(each) == text; });
  if (match == allCases.end()) return std::nullopt;
  return *match;
}

}  // namespace installer
