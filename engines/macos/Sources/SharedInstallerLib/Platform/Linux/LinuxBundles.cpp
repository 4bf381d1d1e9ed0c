#include "Platform/Linux/LinuxBundles.h"

#include <nlohmann/json.hpp>

#include "Platform/Linux/LinuxFileSystem.h"
#include "Platform/PropertyList.h"

namespace installer {

namespace {

// More than any bundle says about itself.
constexpr std::size_t longestInformation = 8UL * 1024 * 1024;

// The file's bytes; absent when it can't be read or goes on beyond what is reasonable.
std::optional<std::string> boundedFile(const Path& path) {
  auto file = LinuxFileSystem{}.openForReading(path);
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

std::shared_ptr<const Bundle> LinuxBundles::read(const Path& path) {
  if (!LinuxFileSystem{}.directoryExists(path)) return nullptr;
  auto bundle = std::make_shared<Bundle>();
  bundle->path = path;
  const auto bytes = boundedFile(joined(path, "Contents/Info.plist"));
  if (!bytes) return bundle;
  auto information = propertyList_.parse(*bytes);
  if (information && information->is_object()) {
    bundle->infoDictionary = std::make_shared<const Json>(*std::move(information));
  }
  return bundle;
}

Path resourcesOfExecutable(const Path& executable) {
  const Path folder = parentFolder(executable);
  const Path contents = parentFolder(folder);
  const bool inBundle = lastPathComponent(folder) == "MacOS" && lastPathComponent(contents) == "Contents" &&
                        parentFolder(contents).ends_with(".app");
  return inBundle ? joined(contents, "Resources") : folder;
}

}  // namespace installer
