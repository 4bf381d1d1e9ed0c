#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListReader.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

Result<Json> LinuxPropertyList::parse(std::string_view bytes) {
  return readPropertyList(bytes);
}

std::shared_ptr<const Bundle> LinuxBundles::read(const Path& path) {
  LinuxFileSystem files;
  return readBundle(files, propertyList_, path);
}

Path resourcesOfExecutable(const Path& executable) {
  const Path folder = parentFolder(executable);
  const Path contents = parentFolder(folder);
  const bool inBundle = lastPathComponent(folder) == "MacOS" && lastPathComponent(contents) == "Contents" &&
                        parentFolder(contents).ends_with(".app");
  return inBundle ? joined(contents, "Resources") : folder;
}

}  // namespace installer
