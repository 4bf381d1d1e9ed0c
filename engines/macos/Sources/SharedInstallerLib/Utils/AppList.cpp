#include "Utils/AppList.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Models/IdentifierList.h"
#include "Models/Pieces.h"
#include "Models/Text.h"
#include "Utils/InstallerConfig.h"
#include "Utils/KeloAppProvider.h"

namespace installer {

namespace {

// Every blank that Unicode knows, and the tab. Line breaks aren't among them: an identifier with one is none.
constexpr std::array<std::string_view, 18> blanks{" ",      "\t",     "\u00A0", "\u1680", "\u2000", "\u2001",
                                                  "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007",
                                                  "\u2008", "\u2009", "\u200A", "\u202F", "\u205F", "\u3000"};

// Bytes of the first blank that `fits`; 0 when none does.
std::size_t blankLength(auto fits) {
  const auto* const blank = std::ranges::find_if(blanks, fits);
  return blank == blanks.end() ? 0 : blank->size();
}

std::string_view withoutBlanks(std::string_view text) {
  const auto leads = [&text](std::string_view blank) { return text.starts_with(blank); };
  const auto trails = [&text](std::string_view blank) { return text.ends_with(blank); };
  while (const auto length = blankLength(leads)) text.remove_prefix(length);
  while (const auto length = blankLength(trails)) text.remove_suffix(length);
  return text;
}

}  // namespace

std::expected<std::vector<AppIdentifier>, std::string> parseApps(std::string_view value) {
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
