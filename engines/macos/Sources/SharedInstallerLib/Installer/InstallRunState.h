// Where an install run stands. Inside the orchestrator only.
//
// Any thread: the worker advances it while the main queue writes cancels and reads the stage, so each
// operation locks for itself, and none calls anything outside.
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

  // One consistent look, for the decision what comes next.
  struct Standing {
    std::optional<AppInfo> app;  // the current one; absent at the end of the list
    std::size_t index = 0;       // of the current app, from 0
    std::size_t count = 0;       // apps of the run
    std::size_t resultCount = 0;
    bool isCancelled = false;      // the whole run
    bool isSkipRequested = false;  // the current app
  };
  Standing standing() const;

  // The run's progress in per cent when the current app stands at `appLocalProgress` per cent.
  double overallProgress(double appLocalProgress) const;

  void setStage(InstallStage stage);
  InstallStage stage() const;

  void cancel();
  // True when the app is the current one and still in its download. The list then stands still until
  // `release`, so that a cancel of the transfer can't meet the next app's.
  bool requestSkip(AppIdentifier app);
  bool isGivenUp(AppIdentifier app) const;  // by either cancel
  // True when the app at `index` is the current one, still in its download and given up.
  bool isDownloadGivenUp(std::size_t index) const;

  // Makes the list stand still for its next step. False when it does so already: the step is left to the last
  // `release`.
  bool hold();
  // True when a step was left to this call.
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
  bool isStepDue_ GUARDED_BY(mutex_) = false;  // one was asked for during a hold
};

}  // namespace installer
