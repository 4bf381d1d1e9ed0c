// The files that describe packages and releases. A value, written and read again, is the same, and one bad
// value has the documented effect.
#include <algorithm>
#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "JSONLaws.h"
#include "Models/PackageMeta.h"
#include "Models/ReleaseNotes.h"
#include "Support/SimulatedMachine.h"
#include "Targets.h"
#include "Utils/BundledPackages.h"
#include "Utils/CDNSource.h"
#include "Utils/KeloAppProvider.h"
#include "Utils/VersionComparison.h"

namespace installer::test {

namespace {

constexpr std::array kTextFields{std::pair{"product", &PackageMeta::product},
                                 std::pair{"version", &PackageMeta::version},
                                 std::pair{"destination", &PackageMeta::destination},
                                 std::pair{"flavour", &PackageMeta::flavour},
                                 std::pair{"os", &PackageMeta::os},
                                 std::pair{"arch", &PackageMeta::arch},
                                 std::pair{"format", &PackageMeta::format},
                                 std::pair{"release", &PackageMeta::release},
                                 std::pair{"mode", &PackageMeta::mode}};

void requireShape(const PackageMeta& meta) {
  for (const auto& [key, field] : kTextFields) {
    require(!(meta.*field) || !(meta.*field)->empty(), "no text is empty");
  }
  require(!meta.size || *meta.size > 0, "a size is above zero");
  require(!meta.checksum || !meta.checksum->empty(), "a checksum isn't empty");
  require(!meta.checksumAlgorithm.empty(), "there always is an algorithm");
  require(meta.checksumIsVerifiable() + meta.hasUnsupportedChecksum() == meta.checksum.has_value(),
          "a checksum either can be verified or is unsupported");
  const auto& alternate = meta.alternateDownloadURL;
  require(!alternate || URL::parse(alternate->absoluteString()) == alternate, "an address reads as itself");
}

Json encoded(const PackageMeta& meta) {
  Json json{{"checksumAlgorithm", meta.checksumAlgorithm}};
  for (const auto& [key, field] : kTextFields) {
    if (meta.*field) json[key] = *(meta.*field);
  }
  if (meta.size) json["size"] = *meta.size;
  if (meta.checksum) json["checksum"] = *meta.checksum;
  if (meta.alternateDownloadURL) json["alternateDownloadUrl"] = meta.alternateDownloadURL->absoluteString();
  return json;
}

void requireThatABadValueCostsItself(std::string_view text, const Json& json, const PackageMeta& meta) {
  const auto decodesAs = [&](const char* key, const PackageMeta& expected) {
    require(PackageMeta::decode(withMember(text, key, badValue(text))) == expected,
            "one bad value costs that value and nothing else");
  };
  for (const auto& [key, field] : kTextFields) {
    auto expected = meta;
    (expected.*field).reset();
    decodesAs(key, expected);
  }
  auto expected = meta;
  expected.size.reset();
  decodesAs("size", expected);
  expected = meta;
  expected.alternateDownloadURL.reset();
  decodesAs("alternateDownloadUrl", expected);
  expected = meta;
  expected.checksumAlgorithm = "sha256";
  decodesAs("checksumAlgorithm", expected);
  expected = meta;
  expected.checksum = JSONReader::nonEmptyString(json, "sha256");
  decodesAs("checksum", expected);
}

// Checks the packages that an installer with this list offers.
void requireManifestOf(std::string_view text, const std::map<std::string, PackageMeta>& index) {
  SimulatedMachine machine;
  machine.files.addFile(joined(machine.resources, "packages/packages.json"), text);
  const auto& manifest = BundledPackages::manifest();
  for (const auto& [destination, meta] : manifest) {
    require(meta.destination == destination, "a package is listed by its file's name");
    require(std::ranges::any_of(index, [&meta](const auto& entry) { return entry.second == meta; }),
            "a package is one of the list");
  }
  for (const auto& [key, meta] : index) {
    require(!meta.destination || manifest.contains(*meta.destination), "no package with a file is lost");
  }
}

}  // namespace

void fuzzPackageMeta(std::string_view text) {
  const auto json = readJSON(text);
  const auto meta = PackageMeta::decode(text);
  require(meta.has_value() == json.is_object(), "every object is read");
  if (!meta) return;
  requireShape(*meta);
  require(PackageMeta::decode(encoded(*meta).dump()) == meta, "what is written again reads the same");
  requireThatABadValueCostsItself(text, json, *meta);
}

void fuzzPackageIndex(std::string_view text) {
  const auto json = readJSON(text);
  const auto index = PackageMeta::decodeIndex(text);
  std::size_t objects = 0;
  const auto members = json.is_object() ? json : Json::object();
  for (const auto& [key, entry] : members.items()) {
    if (!entry.is_object()) continue;
    ++objects;
    require(index.contains(key) && index.at(key) == PackageMeta::decode(entry.dump()),
            "an entry reads as a meta.json of its own");
    requireShape(index.at(key));
    auto others = index;
    others.erase(key);
    require(PackageMeta::decodeIndex(withMember(text, key, badValue(text))) == others,
            "a bad entry costs that entry and nothing else");
  }
  require(index.size() == objects, "only objects are entries");
  requireManifestOf(text, index);
}

namespace {

bool isOptionalText(const Json& object, const char* key) {
  return !object.contains(key) || object[key].is_null() || object[key].is_string();
}

bool isRelease(const Json& json) {
  if (!json.is_object() || !json.contains("version") || !json.contains("notes")) return false;
  const auto& notes = json["notes"];
  return json["version"].is_string() && isOptionalText(json, "date") && notes.is_array() &&
         std::ranges::all_of(notes, [](const Json& note) { return note.is_string(); });
}

// The release notes for a shell from the file `text`.
std::optional<ReleaseNotes> fetched(std::string_view text) {
  SimulatedMachine machine;
  machine.setConfiguration(
      R"({"apps": {}, "trustedDownloadDomains": ["kelo.example"],
          "cdn": {"domains": {"us": "https://kelo.example"}, "releaseNotesEnabled": true}})");
  for (const std::string arch : {"arm64", "x64", "universal"}) {
    machine.network
        .on("https://kelo.example/desksuite/apps/default/brenna/mac/" + arch +
            "/dmg/latest/release-notes.json")
        .answers(200, std::string{text});
  }
  std::optional<ReleaseNotes> notes;
  machine.dispatch.runOnWorker([&notes] {
    notes = CDNSource::fetchReleaseNotes(*KeloAppProvider::shared().app(AppIdentifier::brenna),
                                         CDNSource::kFetchTimeout);
  });
  return notes;
}

void requireNewestFirst(std::string_view text, const ReleaseNotes& notes) {
  const auto shown = fetched(text);
  require(shown.has_value(), "what is read is shown");
  const auto& releases = shown->releases;
  require(std::ranges::is_permutation(releases, notes.releases), "the same releases are shown");
  const auto isOlder = [](const auto& one, const auto& next) {
    return compareVersion(one.version, next.version) == ComparisonResult::ascending;
  };
  require(std::ranges::adjacent_find(releases, isOlder) == releases.end(), "no release follows an older one");
}

bool isReleaseNotes(const Json& json) {
  return json.is_object() && isOptionalText(json, "product") && isOptionalText(json, "version") &&
         json.contains("releases") && json["releases"].is_array() &&
         std::ranges::all_of(json["releases"], isRelease);
}

}  // namespace

void fuzzReleaseNotes(std::string_view text) {
  const auto json = readJSON(text);
  const auto notes = ReleaseNotes::decode(text);
  require(notes.has_value() == isReleaseNotes(json), "exactly what has the documented shape is read");
  if (!notes) return;
  require(notes->releases.size() == json["releases"].size(), "no release is lost");
  requireNewestFirst(text, *notes);
  require(ReleaseNotes::decode(notes->encode().dump()) == notes, "what is written again reads the same");
  require(ReleaseNotes::decode(withMember(text, "unknown", badValue(text))) == notes,
          "unknown keys are ignored");
  for (const char* key : {"product", "version", "releases"}) {
    require(!ReleaseNotes::decode(withMember(text, key, "7")), "a wrong type fails the whole");
  }
}

}  // namespace installer::test
