// Downloads, verifies and installs a list of apps, one at a time, and reports to a delegate. A failing app
// doesn't stop the list; only a cancel of the whole run does.
//
// Owned by a shared_ptr. Pending work holds weak references, so releasing the last strong one ends the run at
// its next step. Steps run on different threads, one at a time: a step starts when the previous one has
// ended. When an app ends during a call to the provider, the next one begins after that call has returned, on
// the calling thread. The main queue must be served during a run, because it delivers all delegate calls.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Installer/AppTurn.h"
#include "Installer/InstallOrchestratorDelegate.h"
#include "Installer/InstallRunState.h"
#include "Models/AppInfo.h"
#include "Models/PackageProvider.h"

namespace installer {

class InstallOrchestrator : public std::enable_shared_from_this<InstallOrchestrator> {
 public:
  explicit InstallOrchestrator(std::shared_ptr<PackageProvider> provider) : provider_{std::move(provider)} {}

  // Main thread, between construction and start. The reference is weak.
  void setDelegate(std::weak_ptr<InstallOrchestratorDelegate> delegate);

  bool isOfflineMode() const { return provider_->isOfflineMode(); }

  // Begins a run and returns when the first call to the provider has returned. An empty list does nothing: no
  // log line and no delegate call, so a caller that waits for the end must not pass one.
  void startInstallation(std::vector<AppInfo> apps);

  // Main queue. The run stops before the next app. A cancel doesn't interrupt verification or installation:
  // the current app is completed.
  void cancelInstallation();
  // Main queue. A later app is skipped in its turn; the transfer of an app in its download is cancelled.
  void cancelApp(AppIdentifier app);

  // Main queue, after the end. False when the run has no turn.
  bool isDeletingDownload() const;

 private:
  // The list of apps.
  void processNextApp();  // on the thread that holds the list, if another one does
  void takeNextStep();
  // False when another engine has the turn; the list then continues with the turn or at a cancel.
  bool hasTurn(const AppInfo& app);
  void waitForTurn(const AppInfo& app);  // on a worker
  void finish();
  void acquire(const AppInfo& app, std::size_t number, std::size_t count);
  PackageProvider::ProgressHandler makeProgressHandler(const AppInfo& app);
  PackageProvider::Completion makeCompletion(const AppInfo& app, const std::string& label);
  void markCurrentAppComplete(const AppInstallResult& result);

  // One acquired package.
  void verifyAndInstall(const AppInfo& app, const AcquiredPackage& package, const std::string& label);
  AppInstallResult verifyAndInstallOnWorker(const AppInfo& app, const AcquiredPackage& package,
                                            const std::string& label);
  // Absent when the package may be installed.
  static std::optional<AppInstallResult> verificationFailure(const AppInfo& app,
                                                             const AcquiredPackage& package);
  AppInstallResult install(const AppInfo& app, const AcquiredPackage& package, const std::string& label);

  // Reports.
  void updateProgress(const std::string& statusText, const std::string& detailText, double appLocalProgress);
  void updateApp(const AppInfo& app, InstallStage stage, const Progress& progress);
  // Runs on the main queue; does nothing when the delegate no longer exists.
  using Report = std::function<void(InstallOrchestratorDelegate&)>;
  void post(Report report);

  const std::shared_ptr<PackageProvider> provider_;
  std::weak_ptr<InstallOrchestratorDelegate> delegate_;  // used on the main queue only
  InstallRunState state_;
  // Both are used on the thread that holds the list.
  std::optional<AppTurn> turn_;                // of the current app
  std::weak_ptr<FileLock> turnUntilDeletion_;  // of the previous app, until its download is deleted
};

}  // namespace installer
