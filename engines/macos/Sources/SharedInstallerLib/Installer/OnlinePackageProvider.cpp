#include "Installer/OnlinePackageProvider.h"

#include <utility>

#include "Installer/OnlineAcquisition.h"

namespace installer {

OnlinePackageProvider::OnlinePackageProvider() = default;
OnlinePackageProvider::~OnlinePackageProvider() = default;

void OnlinePackageProvider::acquirePackage(const AppInfo& app, const std::string& label,
                                           ProgressHandler progressHandler, Completion completion) {
  auto acquisition =
      std::make_shared<OnlineAcquisition>(app, label, std::move(progressHandler), std::move(completion));
  {
    const MutexLock guard{lock_};
    current_ = acquisition;
  }
  acquisition->start();
}

void OnlinePackageProvider::cancelAcquisition() {
  std::shared_ptr<OnlineAcquisition> acquisition;
  {
    const MutexLock guard{lock_};
    acquisition = current_;
  }
  if (acquisition) acquisition->cancel();
}

}  // namespace installer
