#include "support/BundleInfo.h"

#include "Platform/Linux/LinuxBundles.h"
#include "Platform/Linux/LinuxPropertyList.h"

namespace lab {

std::optional<std::string> bundleString(const std::filesystem::path& bundle, const std::string& key) {
  installer::LinuxPropertyList propertyList;
  const auto read = installer::LinuxBundles{propertyList, std::nullopt}.read(bundle.string());
  return read ? read->infoString(key) : std::nullopt;
}

}  // namespace lab
