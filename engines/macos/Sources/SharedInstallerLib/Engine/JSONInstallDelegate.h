// Converts the orchestrator's reports to events of the protocol. Every report counts as progress. Main queue
// only.
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

  // The event of a result; the installed version is read from the bundle on disk.
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
  // Numbers count the apps in the order in which they first reach a stage. An app that is skipped before its
  // first stage gets no number, and the next app gets the next one.
  std::map<std::string, std::int64_t> stageIndex_;
  std::int64_t order_ = 0;  // the last assigned number
};

}  // namespace installer
