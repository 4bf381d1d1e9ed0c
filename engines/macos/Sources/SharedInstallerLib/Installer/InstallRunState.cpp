#include "Installer/InstallRunState.h"

#include <utility>

namespace installer {

void InstallRunState::start(std::vector<AppInfo> apps) {
  const MutexLock lock{mutex_};
  appsToInstall_ = std::move(apps);
  currentAppIndex_ = 0;
  results_.clear();
  isCancelled_ = false;
  skipRequested_.clear();
  currentStage_ = InstallStage::download;
}

InstallRunState::Standing InstallRunState::standing() const {
  const MutexLock lock{mutex_};
  Standing standing;
  standing.index = currentAppIndex_;
  standing.count = appsToInstall_.size();
  standing.resultCount = results_.size();
  standing.isCancelled = isCancelled_;
  if (currentAppIndex_ >= appsToInstall_.size()) return standing;
  standing.app = appsToInstall_[currentAppIndex_];
  standing.isSkipRequested = skipRequested_.contains(standing.app->id);
  return standing;
}

double InstallRunState::overallProgress(double appLocalProgress) const {
  const MutexLock lock{mutex_};
  const auto count = static_cast<double>(appsToInstall_.size());
  return static_cast<double>(currentAppIndex_) / count * 100 + appLocalProgress / 100 * (100 / count);
}

void InstallRunState::setStage(InstallStage stage) {
  const MutexLock lock{mutex_};
  currentStage_ = stage;
}

InstallStage InstallRunState::stage() const {
  const MutexLock lock{mutex_};
  return currentStage_;
}

void InstallRunState::cancel() {
  const MutexLock lock{mutex_};
  isCancelled_ = true;
}

bool InstallRunState::requestSkip(AppIdentifier app) {
  const MutexLock lock{mutex_};
  skipRequested_.insert(app);
  const bool isDownloading = currentAppIndex_ < appsToInstall_.size() &&
                             appsToInstall_[currentAppIndex_].id == app &&
                             currentStage_ == InstallStage::download;
  if (isDownloading) ++holds_;
  return isDownloading;
}

bool InstallRunState::hold() {
  const MutexLock lock{mutex_};
  isStepDue_ = holds_ > 0;
  if (!isStepDue_) ++holds_;
  return !isStepDue_;
}

bool InstallRunState::release() {
  const MutexLock lock{mutex_};
  return --holds_ == 0 && std::exchange(isStepDue_, false);
}

bool InstallRunState::isGivenUp(AppIdentifier app) const {
  const MutexLock lock{mutex_};
  return isCancelled_ || skipRequested_.contains(app);
}

bool InstallRunState::isDownloadGivenUp(std::size_t index) const {
  const MutexLock lock{mutex_};
  if (index != currentAppIndex_ || index >= appsToInstall_.size()) return false;
  if (currentStage_ != InstallStage::download) return false;
  return isCancelled_ || skipRequested_.contains(appsToInstall_[index].id);
}

void InstallRunState::keep(const AppInstallResult& result) {
  const MutexLock lock{mutex_};
  results_.push_back(result);
}

std::vector<AppInstallResult> InstallRunState::results() const {
  const MutexLock lock{mutex_};
  return results_;
}

void InstallRunState::advance() {
  const MutexLock lock{mutex_};
  ++currentAppIndex_;
}

}  // namespace installer
