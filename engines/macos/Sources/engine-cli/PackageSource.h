// The choice of where packages come from, made once per process.
#pragma once

#include <memory>

namespace installer {

class PackageProvider;

// The disk images beside this installer if `offline` asks for them or if there are any, else the CDN. An
// installer with images beside it therefore never goes to the network for packages.
std::shared_ptr<PackageProvider> makeProvider(bool offline);

}  // namespace installer
