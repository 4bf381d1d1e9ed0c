// Selects the package source, once per process.
#pragma once

#include <memory>

namespace installer {

class PackageProvider;

// The disk images in the resources if `offline` is true or if there are any, else the CDN. An installer with
// images therefore never downloads packages.
std::shared_ptr<PackageProvider> makeProvider(bool offline);

}  // namespace installer
