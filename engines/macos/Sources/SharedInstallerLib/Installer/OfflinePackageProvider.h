// The package source of an offline installer: the disk images in its own resources. An acquisition finds the
// file and its expected digest; nothing is copied.
//
// Any thread; the handler and the completion run on the caller's thread before the call returns. A missing
// checksum is logged as a warning; with an unknown algorithm the acquisition fails.
#pragma once

#include <string>

#include "Models/PackageProvider.h"

namespace installer {

class OfflinePackageProvider final : public PackageProvider {
 public:
  void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                      Completion completion) override;
  // Does nothing: an acquisition has always ended before this call.
  void cancelAcquisition() override;
  bool isOfflineMode() const override { return true; }
};

}  // namespace installer
