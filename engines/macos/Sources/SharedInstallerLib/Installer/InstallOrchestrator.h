// Takes a list of apps through download, verification and installation, one app at a time, and tells a
// delegate what happens. A failing app never stops the list; only a whole-run cancel does.
//
// Held by a shared_ptr. Work in flight holds the orchestrator weakly, so dropping the last reference ends the
// run at its next step. The list advances on a chain of calls that hop between threads: there is one worker
// at a time, and nothing starts the next step until the previous one has ended. An app that ends during a
// call to the provider is followed by the next one when that call has returned, on the calling thread. The
// main queue must be served during a run, or no delegate call ever arrives.
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

  // Main thread, between construction and start. Held weakly.
  void setDelegate(std::weak_ptr<InstallOrchestratorDelegate> delegate) { delegate_ = std::move(delegate); }

  bool isOfflineMode() const { return provider_->isOfflineMode(); }

  // Begins a run and returns at once, or as soon as the first acquisition has returned. An empty list does
  // nothing at all: no log line and no delegate call, so whoever waits for the end must not start one.
  void startInstallation(std::vector<AppInfo> apps);

  // Main queue. The run stops before the next app. A cancel never interrupts verification or installation:
  // an app at work there runs to its true end.
  void cancelInstallation();
  // Main queue. An app still to come is skipped in its turn; one being acquired has its transfer cancelled.
  void cancelApp(AppIdentifier app);

 private:
  // The list.
  void processNextApp();  // by the thread that holds the list, if another one does
  void takeNextStep();
  // False when another engine has it; the list then goes on once it comes, or at a cancel.
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
  // On the main queue; nothing happens when the delegate has gone by then.
  using Report = std::function<void(InstallOrchestratorDelegate&)>;
  void post(Report report);

  const std::shared_ptr<PackageProvider> provider_;
  std::weak_ptr<InstallOrchestratorDelegate> delegate_;  // read on the main queue only
  InstallRunState state_;
  // Both by the thread that holds the list.
  std::optional<AppTurn> turn_;                // of the current app
  std::weak_ptr<FileLock> turnUntilDeletion_;  // of the app before, until its download is deleted
};

}  // namespace installer
