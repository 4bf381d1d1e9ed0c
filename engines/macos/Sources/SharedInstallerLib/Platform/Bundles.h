// Application bundles as the platform reads them. Any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "Base/JSONReader.h"
#include "Base/Path.h"

namespace installer {

class FileSystem;
class PropertyList;

// More than the length of any real Info.plist.
inline constexpr std::size_t kMaximumInformationBytes = std::size_t{8} << 20U;

// A bundle's information as it was read; later changes on disk don't change it.
struct Bundle {
  Path path;
  std::shared_ptr<const Json> infoDictionary;  // an object; null when Info.plist is missing or unreadable

  // A string under `key` of the information; absent when missing or of another type.
  std::optional<std::string> infoString(const std::string& key) const;
  std::optional<std::string> bundleIdentifier() const { return infoString("CFBundleIdentifier"); }
};

class Bundles {
 public:
  virtual ~Bundles() = default;

  // Reads the bundle at `path` from disk. Null when `path` isn't a directory; a directory without a readable
  // Info.plist is a bundle without information.
  virtual std::shared_ptr<const Bundle> read(const Path& path) = 0;

  // The folder of the resources of this executable; absent when it has none.
  virtual std::optional<Path> mainResources() = 0;
};

// Reads a bundle, on every host. The Info.plist is used only when it is a regular file of at most
// `kMaximumInformationBytes`.
std::shared_ptr<const Bundle> readBundle(FileSystem& files, PropertyList& propertyList, const Path& path);

}  // namespace installer
