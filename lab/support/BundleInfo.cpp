#include "support/BundleInfo.h"

#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Base/POSIX/PropertyListBounds.h"
#include "Base/POSIX/PropertyListReader.h"
#include "Base/POSIX/WholeFile.h"

namespace lab {

std::optional<std::string> bundleString(const std::filesystem::path& bundle, const std::string& key) {
  const auto bytes =
      installer::readWholeFile(bundle / "Contents/Info.plist", installer::PropertyListBounds{}.bytes);
  const auto information = bytes ? installer::readPropertyList(*bytes) : handOn(bytes);
  return information ? installer::JSONReader::string(*information, key) : std::nullopt;
}

}  // namespace lab
