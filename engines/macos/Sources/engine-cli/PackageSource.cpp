#include "PackageSource.h"

#include "Installer/OfflinePackageProvider.h"
#include "Installer/OnlinePackageProvider.h"
#include "Utils/BundledPackages.h"
#include "Utils/Log.h"

namespace installer {

std::shared_ptr<PackageProvider> makeProvider(bool offline) {
  if (!offline && !BundledPackages::bundledPackagesAvailable()) {
    return std::make_shared<OnlinePackageProvider>();
  }
  log("engine-cli: offline mode ({})", offline ? "--offline flag" : "bundled packages detected");
  return std::make_shared<OfflinePackageProvider>();
}

}  // namespace installer
