// Turns what the orchestrator reports into events of the protocol, and remembers the end of the run.
// Main queue only. The orchestrator holds it weakly; the run that made it keeps it alive.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Engine/EngineEvent.h"
#include "Installer/InstallOrchestratorDelegate.h"
#include "Platform/Dispatch.h"

namespace installer {

class JSONInstallDelegate final : public InstallOrchestratorDelegate {
 public:
  // `action` is `install` or `update`. Its creation counts as the first sign of life.
  JSONInstallDelegate(std::size_t totalApps, Action action);

  // How a result reads on the wire; the installed version is read afresh from the bundle on disk.
  static AppResultEvent resultEvent(const AppInstallResult& result, Action action);

  bool isFinished() const { return isFinished_; }
  const std::vector<AppInstallResult>& results() const { return results_; }  // empty until finished
  TimePoint lastActivity() const { return lastActivity_; }

  void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                     double progress) override;
  void orchestratorDidFinish(const std::vector<AppInstallResult>& results) override;
  void orchestratorDidUpdateApp(const std::string& appId, InstallStage stage,
                                const Progress& progress) override;
  void orchestratorDidCompleteApp(const AppInstallResult& result) override;

 private:
  void noteActivity();
  void enterStage(const std::string& appId, InstallStage stage);

  const std::size_t totalApps_;
  const Action action_;
  std::map<std::string, InstallStage> lastStage_;
  // Numbers count the apps in the order in which they first reach a stage: one that is skipped on arrival
  // gets none, and those behind it move up.
  std::map<std::string, std::int64_t> stageIndex_;
  std::int64_t order_ = 0;  // the last number given out
  std::vector<AppInstallResult> results_;
  bool isFinished_ = false;
  TimePoint lastActivity_;
};

}  // namespace installer
