#include "Utils/CDNSource.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Base/Text.h"
#include "Models/AppInfo.h"
#include "Models/CDNLayout.h"
#include "Models/ReleaseNotes.h"
#include "Utils/CDNFetch.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"
#include "Utils/SystemUtils.h"
#include "Utils/VersionComparison.h"

namespace installer::CDNSource {

namespace {

std::string machineSegment() {
  return SystemUtils::isArm64Architecture() ? "arm64" : "x64";
}

std::string declaredSegment(const AppInfo& app) {
  return app.cdnArch == CDNArchScope::universal ? "universal" : machineSegment();
}

std::string otherSegment(const AppInfo& app) {
  return app.cdnArch == CDNArchScope::universal ? machineSegment() : "universal";
}

// The logged text shows whether the body is a login page, a truncated file or wrong metadata.
void logBeginningOf(std::string_view body) {
  constexpr std::size_t shownCharacters = 100;
  const auto json = JSONReader::parse(body);
  log("CDNSource: {} The {} bytes begin with: {}",
      json ? "The JSON text isn't an object." : json.error().localizedDescription, body.size(),
      oneLine(body, shownCharacters));
}

Expected<CDNPackage, CDNFetchError> fetchPackage(const AppInfo& app, std::string_view archSegment,
                                                 Duration timeout) {
  const auto folder = folderURL(app, archSegment);
  if (!folder) return std::unexpected(CDNFetchError::transient);
  const auto url = folder->appendingPathComponent(CDNLayout::kMetadataFileName);
  log("CDNSource: meta URL for {}: {}", app.displayName, url.absoluteString());

  const auto body = fetchJSON(url, timeout, app.displayName);
  if (!body) return handOn(body);
  auto meta = PackageMeta::decode(*body);
  if (!meta) {
    log("CDNSource: unparseable meta.json for {} at {}", app.displayName, url.absoluteString());
    logBeginningOf(*body);
    return std::unexpected(CDNFetchError::transient);
  }
  return CDNPackage{*folder, std::move(*meta)};
}

using Releases = std::vector<ReleaseNotes::Entry>;

bool isNewer(const ReleaseNotes::Entry& one, const ReleaseNotes::Entry& other) {
  return compareVersion(one.version, other.version) == ComparisonResult::descending;
}

// Insertion sort. An entry moves only past entries that it is newer than, so equal entries keep their order.
void sortShort(Releases::iterator begin, Releases::iterator end) {
  for (auto entry = begin; entry != end; ++entry) {
    auto place = entry;
    while (place != begin && isNewer(*entry, *std::prev(place))) --place;
    std::rotate(place, entry, std::next(entry));
  }
}

// The standard sorts need a strict weak ordering. This order isn't one: "1.2" equals "1.2.1" and "1.2.2",
// which differ. Merging doesn't need one. Long input is merged from short sorted pieces to bound the time.
void sortNewestFirst(Releases& releases) {
  constexpr std::ptrdiff_t shortLength = 32;
  const auto count = static_cast<std::ptrdiff_t>(releases.size());
  const auto at = [&](std::ptrdiff_t place) { return releases.begin() + std::min(place, count); };
  for (std::ptrdiff_t place = 0; place < count; place += shortLength) {
    sortShort(at(place), at(place + shortLength));
  }
  for (auto width = shortLength; width < count; width *= 2) {
    Releases merged;
    merged.reserve(releases.size());
    for (std::ptrdiff_t place = 0; place < count; place += 2 * width) {
      const auto middle = std::make_move_iterator(at(place + width));
      std::merge(std::make_move_iterator(at(place)), middle, middle,
                 std::make_move_iterator(at(place + 2 * width)), std::back_inserter(merged), isNewer);
    }
    releases = std::move(merged);
  }
}

}  // namespace

std::optional<URL> folderURL(const AppInfo& app, std::string_view archSegment) {
  const auto& baseText = InstallerConfig::cdnBaseURL();
  auto url = URL::parse(baseText);
  if (!url) {
    logError("CDNSource: cdn.domains['{}'] is not a valid URL: '{}' — check installer_config.json",
             rawValue(InstallerConfig::cdnDataCenter()), baseText);
    return std::nullopt;
  }
  const CDNLayout layout{.distributionRoot = InstallerConfig::cdnDistributionRoot(),
                         .appsRoot = InstallerConfig::cdnAppsRoot(),
                         .flavour = InstallerConfig::flavour(),
                         .service = app.cdnService(),
                         .arch = std::string{archSegment},
                         .format = app.cdnFormat,
                         .release = InstallerConfig::cdnRelease()};
  for (const auto& component : layout.folderComponents()) url = url->appendingPathComponent(component);
  return url;
}

Expected<CDNPackage, CDNFetchError> fetchPackage(const AppInfo& app, Duration timeout) {
  const auto declared = declaredSegment(app);
  auto first = fetchPackage(app, declared, timeout);
  if (first || first.error() != CDNFetchError::notFound) return first;

  const auto other = otherSegment(app);
  if (other == declared) return first;
  auto second = fetchPackage(app, other, timeout);
  if (!second) return first;
  logWarn(
      "CDNSource: {} was NOT under the declared '{}' arch segment but IS under '{}'. The build's pullset properties and this app's cdnArch disagree — fix cdnArch in AppInfo and protocol/catalog.json to '{}'.",
      app.displayName, declared, other, other);
  return second;
}

std::optional<ReleaseNotes> fetchReleaseNotes(const AppInfo& app, Duration timeout) {
  if (!InstallerConfig::releaseNotesEnabled()) return std::nullopt;
  // The other segment isn't tried: a missing file only means that there are no notes.
  const auto folder = folderURL(app, declaredSegment(app));
  if (!folder) return std::nullopt;
  const auto url = folder->appendingPathComponent(CDNLayout::kReleaseNotesFileName);
  const auto body = fetchJSON(url, timeout, app.displayName);
  if (!body) return std::nullopt;
  auto notes = ReleaseNotes::decode(*body);
  if (!notes) return std::nullopt;
  sortNewestFirst(notes->releases);
  return notes;
}

}  // namespace installer::CDNSource
