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

// More than any bundle says about itself in its Info.plist.
inline constexpr std::size_t kMaximumInformationBytes = std::size_t{8} << 20U;

// What a bundle said about itself when it was read; it doesn't change with the disk.
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

  // Reads the bundle at `path` afresh. Null when no directory is there; a directory without a readable
  // Info.plist is a bundle that says nothing.
  virtual std::shared_ptr<const Bundle> read(const Path& path) = 0;

  // The folder of the resources that travel with this executable; absent when it has none.
  virtual std::optional<Path> mainResources() = 0;
};

// How every host reads a bundle. What an Info.plist says counts when it is a regular file of reasonable
// length.
std::shared_ptr<const Bundle> readBundle(FileSystem& files, PropertyList& propertyList, const Path& path);

}  // namespace installer
