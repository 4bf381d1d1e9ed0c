// The source of an offline installer: the disk images lie among its own resources. Acquiring a package means
// finding its file and saying which digest to expect; nothing is copied.
//
// Any thread; everything happens on the caller's, and handler and completion run before the call returns.
// A missing checksum is only warned about here; one in an unknown algorithm refuses the package.
#pragma once

#include <string>

#include "Models/PackageProvider.h"

namespace installer {

class OfflinePackageProvider final : public PackageProvider {
 public:
  void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                      Completion completion) override;
  // There is never anything under way to give up.
  void cancelAcquisition() override;
  bool isOfflineMode() const override { return true; }
};

}  // namespace installer
