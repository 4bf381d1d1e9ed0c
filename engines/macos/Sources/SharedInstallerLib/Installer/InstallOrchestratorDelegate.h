// Hears what an install run does. Every call comes on the main queue, in the order in which things happened.
// The orchestrator holds its delegate weakly; the owner of the run keeps it alive.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Installer/AppInstallResult.h"
#include "Installer/InstallStage.h"

namespace installer {

class InstallOrchestratorDelegate {
 public:
  virtual ~InstallOrchestratorDelegate() = default;

  // Overall progress of the run, 0 to 100.
  virtual void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                             double progress) = 0;

  // Once per run, after the last app's result. In finishing order; apps that a whole-run cancel kept from
  // being reached have no result.
  virtual void orchestratorDidFinish(const std::vector<AppInstallResult>& results) = 0;

  // This app's own progress, 0 to 100. Byte counts are absent outside the transfer.
  virtual void orchestratorDidUpdateApp(const std::string& /*appId*/, InstallStage /*stage*/,
                                        double /*percent*/, bool /*indeterminate*/,
                                        std::optional<std::int64_t> /*downloadedBytes*/,
                                        std::optional<std::int64_t> /*totalBytes*/) {}

  virtual void orchestratorDidCompleteApp(const AppInstallResult& /*result*/) {}
};

}  // namespace installer
