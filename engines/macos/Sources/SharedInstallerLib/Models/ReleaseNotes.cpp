#include "Models/ReleaseNotes.h"

#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"

namespace installer {

namespace {

// False when the key's value is neither a string nor null. A null counts as a missing key.
bool readOptionalString(const Json& object, std::string_view key, std::optional<std::string>& field) {
  const auto* const entry = JSONReader::member(object, key);
  if (entry == nullptr || entry->is_null()) return true;
  field = JSONReader::string(object, key);
  return field.has_value();
}

std::optional<ReleaseNotes::Entry> decodeEntry(const Json& object) {
  auto version = JSONReader::string(object, "version");
  auto notes = JSONReader::strings(object, "notes");
  if (!version || !notes) return std::nullopt;

  ReleaseNotes::Entry entry{*std::move(version), std::nullopt, *std::move(notes)};
  if (!readOptionalString(object, "date", entry.date)) return std::nullopt;
  return entry;
}

}  // namespace

std::optional<ReleaseNotes> ReleaseNotes::decode(std::string_view bytes) {
  const auto json = JSONReader::parse(bytes);
  if (!json) return std::nullopt;
  const auto* const releases = JSONReader::member(*json, "releases");
  if (releases == nullptr || !releases->is_array()) return std::nullopt;

  ReleaseNotes decoded;
  if (!readOptionalString(*json, "product", decoded.product)) return std::nullopt;
  if (!readOptionalString(*json, "version", decoded.version)) return std::nullopt;
  for (const auto& release : *releases) {
    auto entry = decodeEntry(release);
    if (!entry) return std::nullopt;
    decoded.releases.push_back(*std::move(entry));
  }
  return decoded;
}

Json ReleaseNotes::encode() const {
  Json json{{"releases", Json::array()}};
  if (product) json["product"] = *product;
  if (version) json["version"] = *version;
  for (const auto& release : releases) {
    Json entry{{"version", release.version}, {"notes", release.notes}};
    if (release.date) entry["date"] = *release.date;
    json["releases"].push_back(std::move(entry));
  }
  return json;
}

}  // namespace installer
