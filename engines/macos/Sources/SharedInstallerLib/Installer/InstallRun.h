// One install run from its start to its results, for both drivers: the controller and the silent runner. Main
// thread only.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "Installer/InstallOrchestratorDelegate.h"
#include "Models/AppInfo.h"
#include "Platform/Dispatch.h"

namespace installer {

class InstallOrchestrator;
class PackageProvider;

// Records the end of a run and the time of its last progress; a driver's own delegate reports the rest. Main
// queue only. The orchestrator has a weak reference; the run keeps the delegate alive.
class InstallRunDelegate : public InstallOrchestratorDelegate {
 public:
  bool isFinished() const { return isFinished_; }
  const std::vector<AppInstallResult>& results() const { return results_; }  // empty until finished
  TimePoint lastActivity() const { return lastActivity_; }

  void orchestratorDidFinish(const std::vector<AppInstallResult>& results) override;
  void orchestratorIsWaiting(const std::optional<std::string>& message) override;  // counts as progress

  // Excludes `blocked`, which ends now, from the idle time.
  void excludeFromIdleTime(Duration blocked);

 protected:
  InstallRunDelegate();  // starts the idle time
  void noteActivity();

 private:
  std::vector<AppInstallResult> results_;
  bool isFinished_ = false;
  TimePoint lastActivity_;
};

class InstallRun {
 public:
  // The longest time without progress; then the wait for the run ends. Time in which the main thread is
  // blocked, for example by a password prompt, doesn't count.
  static constexpr std::chrono::seconds kIdleLimit{600};

  enum class End { finished, idle };

  InstallRun(const std::shared_ptr<PackageProvider>& provider, std::shared_ptr<InstallRunDelegate> delegate);

  // Serves the main run loop until the end of the run or the idle limit. The limit cancels nothing: running
  // work ends with the process. `apps` must not be empty.
  End run(const std::vector<AppInfo>& apps);

  // Called during `run`, on the main queue.
  void cancelInstallation();
  void cancelApp(AppIdentifier app);

 private:
  void waitForDeletion();

  const std::shared_ptr<InstallRunDelegate> delegate_;
  const std::shared_ptr<InstallOrchestrator> orchestrator_;
};

}  // namespace installer
