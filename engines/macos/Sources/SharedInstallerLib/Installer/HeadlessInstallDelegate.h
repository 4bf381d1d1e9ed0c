// Hears an install run that nobody watches: progress goes to the log, the results are kept for the end.
// Main queue only. The orchestrator holds it weakly; the run that made it keeps it alive.
#pragma once

#include <string>
#include <vector>

#include "Installer/InstallOrchestratorDelegate.h"
#include "Platform/Dispatch.h"

namespace installer {

class HeadlessInstallDelegate final : public InstallOrchestratorDelegate {
 public:
  // Its creation counts as the first sign of life. After that only progress of the whole run does.
  HeadlessInstallDelegate();

  bool isFinished() const { return isFinished_; }
  const std::vector<AppInstallResult>& results() const { return results_; }  // empty until finished
  TimePoint lastActivity() const { return lastActivity_; }

  void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                     double progress) override;
  void orchestratorDidFinish(const std::vector<AppInstallResult>& results) override;

 private:
  std::vector<AppInstallResult> results_;
  bool isFinished_ = false;
  TimePoint lastActivity_;
};

}  // namespace installer
