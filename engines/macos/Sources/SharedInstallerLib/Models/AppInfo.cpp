#include "Models/AppInfo.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string_view>

#include "Models/Vocabulary.h"
#include "Platform/Machine.h"

namespace installer {

namespace {

constexpr auto kCatalogRows = std::to_array<WireRow<AppIdentifier>>({
#include "AppIdentifierRows.inc"
});

}  // namespace

std::string_view rawValue(AppIdentifier identifier) {
  return std::ranges::find(kCatalogRows, identifier, &WireRow<AppIdentifier>::value)->word;
}

std::optional<AppIdentifier> AppIdentifiers::fromRawValue(std::string_view text) {
  const auto* const row = std::ranges::find(kCatalogRows, text, &WireRow<AppIdentifier>::word);
  if (row == kCatalogRows.end()) return std::nullopt;
  return row->value;
}

std::vector<std::string> AppInfo::knownBundleIdentifiers() const {
  std::vector<std::string> identifiers{installerBundleIdentifier};
  identifiers.insert(identifiers.end(), otherBundleIdentifiers.begin(), otherBundleIdentifiers.end());
  return identifiers;
}

Path AppInfo::tempFilePath() const {
  return joined(machine().paths.temporaryDirectory, tempFileName);
}

std::string identifierList(const std::vector<AppInfo>& apps) {
  std::vector<std::string_view> values;
  for (const auto& app : apps) values.push_back(rawValue(app.id));
  return fmt::format("{}", fmt::join(values, ", "));
}

}  // namespace installer
