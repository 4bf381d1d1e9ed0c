#include "AppList.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

#include "Models/Pieces.h"
#include "Models/Text.h"
#include "Utils/InstallerConfig.h"
#include "Utils/KeloAppProvider.h"

namespace installer {

namespace {

// Line breaks stay: an identifier with one in it is none.
std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t";
  const auto first = std::min(text.find_first_not_of(blanks), text.size());
  const auto last = text.find_last_not_of(blanks);
  return last == std::string_view::npos ? std::string_view{} : text.substr(first, last - first + 1);
}

}  // namespace

std::optional<std::vector<AppIdentifier>> parseApps(const std::optional<std::string>& value) {
  const auto text = value.value_or("");
  std::vector<AppIdentifier> identifiers;
  for (const auto piece : nonEmptyPieces(text, ',')) {
    const auto identifier = AppIdentifiers::fromRawValue(lowercased(withoutBlanks(piece)));
    if (!identifier || !InstallerConfig::isIncluded(*identifier)) return std::nullopt;
    identifiers.push_back(*identifier);
  }
  return identifiers;
}

std::string availableAppIds() {
  std::vector<std::string_view> values;
  for (const auto& app : KeloAppProvider::shared().allApps()) values.push_back(rawValue(app.id));
  return fmt::format("{}", fmt::join(values, ", "));
}

}  // namespace installer
