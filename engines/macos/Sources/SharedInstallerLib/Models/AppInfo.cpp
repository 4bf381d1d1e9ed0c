#include "Models/AppInfo.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

#include "Platform/Machine.h"

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
