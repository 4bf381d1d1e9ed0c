// Turns what the orchestrator reports into events of the protocol. Every report is a sign of life.
// Main queue only.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Engine/EngineEvent.h"
#include "Installer/InstallRun.h"

namespace installer {

class JSONInstallDelegate final : public InstallRunDelegate {
 public:
  // `action` is `install` or `update`.
  JSONInstallDelegate(std::size_t totalApps, Action action);

  // How a result reads on the wire; the installed version is read afresh from the bundle on disk.
  static AppResultEvent resultEvent(const AppInstallResult& result, Action action);

  void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                     double progress) override;
  void orchestratorDidUpdateApp(const std::string& appId, InstallStage stage,
                                const Progress& progress) override;
  void orchestratorIsWaiting(const std::optional<std::string>& message) override;
  void orchestratorDidCompleteApp(const AppInstallResult& result) override;

 private:
  void enterStage(const std::string& appId, InstallStage stage);

  const std::size_t totalApps_;
  const Action action_;
  std::map<std::string, InstallStage> lastStage_;
  // Numbers count the apps in the order in which they first reach a stage: one that is skipped on arrival
  // gets none, and those behind it move up.
  std::map<std::string, std::int64_t> stageIndex_;
  std::int64_t order_ = 0;  // the last number given out
};

}  // namespace installer
