// The package source of an online build: gets an app's disk image from the content delivery network.
//
// One app at a time. Each call of `acquirePackage` is an `OnlineAcquisition` of its own, so that what arrives
// late of an earlier one can't touch the next.
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

  // Returns at once; everything else happens on other threads. The image is handed over at
  // `AppInfo::tempFilePath`, and a sound one that lies there already is used without a transfer.
  void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                      Completion completion) override;

  // Any thread. Doesn't call the completion itself: the end comes in the usual way, as a failure or, when
  // the image was complete already, as a success. No transfer starts after it.
  void cancelAcquisition() override;

  bool isOfflineMode() const override { return false; }

 private:
  Mutex lock_;
  std::shared_ptr<OnlineAcquisition> current_ GUARDED_BY(lock_);  // the latest, finished or not
};

}  // namespace installer
