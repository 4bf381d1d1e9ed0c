#include "Models/AppInfo.h"

#include "Platform/Machine.h"

namespace installer {

std::vector<std::string> AppInfo::knownBundleIdentifiers() const {
  std::vector<std::string> identifiers{installerBundleIdentifier};
  identifiers.insert(identifiers.end(), otherBundleIdentifiers.begin(), otherBundleIdentifiers.end());
  return identifiers;
}

Path AppInfo::tempFilePath() const {
  return joined(machine().paths.temporaryDirectory, tempFileName);
}

}  // namespace installer
