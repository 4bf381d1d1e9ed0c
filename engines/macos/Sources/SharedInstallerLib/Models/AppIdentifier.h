// The four applications of the suite. An excluded application still has its case here; whether it exists
// for this build is the catalog's answer.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace installer {

enum class AppIdentifier { brenna, tolvi, rulo, galdivane };

// The identifier on every outside surface: command line, events, configuration keys, CDN paths.
std::string_view rawValue(AppIdentifier identifier);

namespace AppIdentifiers {

// In the order of the catalog.
inline constexpr std::array allCases{AppIdentifier::brenna, AppIdentifier::tolvi, AppIdentifier::rulo,
                                     AppIdentifier::galdivane};

// Exact and case-sensitive; a caller that wants leniency trims and lowercases first.
std::optional<AppIdentifier> fromRawValue(std::string_view text);

}  // namespace AppIdentifiers

}  // namespace installer
