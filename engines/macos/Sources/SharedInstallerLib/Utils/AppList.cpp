#include "Utils/AppList.h"

#include <utility>

#include "Base/Text.h"
#include "Models/AppInfo.h"
#include "Utils/InstallerConfig.h"
#include "Utils/KeloAppProvider.h"

namespace installer {

Expected<std::vector<AppIdentifier>, std::string> parseApps(std::string_view value) {
  std::vector<AppIdentifier> identifiers;
  for (const auto piece : nonEmptyPieces(value, ',')) {
    auto text = lowercased(withoutBlanks(piece));
    const auto identifier = AppIdentifiers::fromRawValue(text);
    if (!identifier || !InstallerConfig::isIncluded(*identifier)) return std::unexpected(std::move(text));
    identifiers.push_back(*identifier);
  }
  return identifiers;
}

std::string availableAppIds() {
  return identifierList(KeloAppProvider::shared().allApps());
}

}  // namespace installer
