// The package source of an online build: fetches an app's disk image from the content delivery network.
//
// One app at a time. Each call of `acquirePackage` makes an `OnlineAcquisition`, so that late callbacks of an
// earlier one can't affect the next.
#pragma once

#include <memory>
#include <string>

#include "Base/Mutex.h"
#include "Models/PackageProvider.h"

namespace installer {

class OnlineAcquisition;

class OnlinePackageProvider : public PackageProvider {
 public:
  OnlinePackageProvider();
  ~OnlinePackageProvider() override;

  // Returns at once; the work is done on other threads. The image is at `AppInfo::tempFilePath`; a valid one
  // that already exists there is used without a transfer.
  void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                      Completion completion) override;

  // Any thread. Doesn't call the completion itself: the acquisition ends with a failure or, when the image
  // was already complete, with a success. No transfer starts after this call.
  void cancelAcquisition() override;

  bool isOfflineMode() const override { return false; }

 private:
  Mutex lock_;
  std::shared_ptr<OnlineAcquisition> current_ GUARDED_BY(lock_);  // the latest, finished or not
};

}  // namespace installer
