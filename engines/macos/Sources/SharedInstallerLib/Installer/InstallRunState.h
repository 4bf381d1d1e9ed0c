// The state of an install run. Used by the orchestrator only.
//
// Any thread: the worker advances it while the main queue records cancels and reads the stage. Each operation
// locks, and none calls other code.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <vector>

#include "Base/Mutex.h"
#include "Installer/InstallOrchestratorDelegate.h"
#include "Models/AppInfo.h"

namespace installer {

class InstallRunState {
 public:
  void start(std::vector<AppInfo> apps);

  // A consistent snapshot, to decide the next step.
  struct Standing {
    std::optional<AppInfo> app;  // the current one; absent at the end of the list
    std::size_t index = 0;       // of the current app, from 0
    std::size_t count = 0;       // apps of the run
    std::size_t resultCount = 0;
    bool isCancelled = false;      // the whole run
    bool isSkipRequested = false;  // the current app
  };
  Standing standing() const;

  // The run's progress in per cent when the current app's is `appLocalProgress` per cent.
  double overallProgress(double appLocalProgress) const;

  void setStage(InstallStage stage);
  InstallStage stage() const;

  void cancel();
  // True when the app is the current one and still in its download. Then holds the list until `release`, so
  // that a cancel of the transfer can't affect the next app's.
  bool requestSkip(AppIdentifier app);
  bool isGivenUp(AppIdentifier app) const;  // by either cancel
  // True when the app at `index` is the current one, still in its download and cancelled.
  bool isDownloadGivenUp(std::size_t index) const;

  // Holds the list for its next step. False when it is already held; then the last `release` reports the step
  // as due.
  bool hold();
  // True when the caller must take the due step.
  bool release();

  void keep(const AppInstallResult& result);
  std::vector<AppInstallResult> results() const;
  void advance();

 private:
  mutable Mutex mutex_;
  std::vector<AppInfo> appsToInstall_ GUARDED_BY(mutex_);
  std::size_t currentAppIndex_ GUARDED_BY(mutex_) = 0;
  std::vector<AppInstallResult> results_ GUARDED_BY(mutex_);  // in finishing order
  bool isCancelled_ GUARDED_BY(mutex_) = false;
  std::set<AppIdentifier> skipRequested_ GUARDED_BY(mutex_);
  InstallStage currentStage_ GUARDED_BY(mutex_) = InstallStage::download;
  int holds_ GUARDED_BY(mutex_) = 0;
  bool isStepDue_ GUARDED_BY(mutex_) = false;  // a step became due during a hold
};

}  // namespace installer
