#include "Platform/Bundles.h"

#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Platform/FileSystem.h"
#include "Platform/PropertyList.h"

namespace installer {

std::optional<std::string> Bundle::infoString(const std::string& key) const {
  if (infoDictionary == nullptr) return std::nullopt;
  return JSONReader::string(*infoDictionary, key);
}

std::shared_ptr<const Bundle> readBundle(FileSystem& files, PropertyList& propertyList, const Path& path) {
  if (!files.directoryExists(path)) return nullptr;
  auto bundle = std::make_shared<Bundle>();
  bundle->path = path;
  const auto bytes = readBoundedFile(files, joined(path, "Contents/Info.plist"), kMaximumInformationBytes);
  if (!bytes) return bundle;
  auto information = propertyList.parse(*bytes);
  if (information && information->is_object()) {
    bundle->infoDictionary = std::make_shared<const Json>(*std::move(information));
  }
  return bundle;
}

}  // namespace installer
