#include "Platform/Bundles.h"

#include <nlohmann/json.hpp>

#include "Platform/FileSystem.h"
#include "Platform/PropertyList.h"

namespace installer {

namespace {

// More than any bundle says about itself.
constexpr std::size_t longestInformation = 8UL * 1024 * 1024;

// The file's bytes; absent when it can't be read or goes on beyond what is reasonable.
std::optional<std::string> boundedFile(FileSystem& files, const Path& path) {
  auto file = files.openForReading(path);
  if (!file) return std::nullopt;
  std::string bytes;
  while (bytes.size() <= longestInformation) {
    const auto piece = (*file)->read(64UL * 1024);
    if (!piece) return std::nullopt;
    if (piece->empty()) return bytes;
    bytes += *piece;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> Bundle::infoString(const std::string& key) const {
  if (infoDictionary == nullptr) return std::nullopt;
  const auto entry = infoDictionary->find(key);
  if (entry == infoDictionary->end() || !entry->is_string()) return std::nullopt;
  return entry->get<std::string>();
}

std::shared_ptr<const Bundle> readBundle(FileSystem& files, PropertyList& propertyList, const Path& path) {
  if (!files.directoryExists(path)) return nullptr;
  auto bundle = std::make_shared<Bundle>();
  bundle->path = path;
  const auto bytes = boundedFile(files, joined(path, "Contents/Info.plist"));
  if (!bytes) return bundle;
  auto information = propertyList.parse(*bytes);
  if (information && information->is_object()) {
    bundle->infoDictionary = std::make_shared<const Json>(*std::move(information));
  }
  return bundle;
}

}  // namespace installer
