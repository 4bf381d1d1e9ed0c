#include "Support/SimulatedBundles.h"

#include <nlohmann/json.hpp>

namespace installer::testing {

std::shared_ptr<const Bundle> SimulatedBundles::read(const Path& path) {
  if (!files_.directoryExists(path)) return nullptr;
  auto bundle = std::make_shared<Bundle>();
  bundle->path = path;
  const auto bytes = files_.readFile(joined(path, "Contents/Info.plist"));
  if (!bytes) return bundle;
  const auto information = propertyList_.parse(*bytes);
  if (information && information->is_object()) {
    bundle->infoDictionary = std::make_shared<const Json>(*information);
  }
  return bundle;
}

}  // namespace installer::testing
