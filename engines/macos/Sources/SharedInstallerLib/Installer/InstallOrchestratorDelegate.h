// Gets the reports of an install run. Every call is on the main queue, in the order of the events. The
// orchestrator has a weak reference to its delegate; the owner of the run keeps it alive.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/Path.h"
#include "Models/AppInfo.h"
#include "Models/PackageProvider.h"
#include "Models/Vocabulary.h"

namespace installer {

// The stage of the current app.
enum class InstallStage { download, verify, install };

constexpr AppStage appStage(InstallStage stage) {
  switch (stage) {
    case InstallStage::download: return AppStage::download;
    case InstallStage::verify: return AppStage::verify;
    case InstallStage::install: break;
  }
  return AppStage::install;
}

constexpr std::string_view rawValue(InstallStage stage) {
  return rawValue(appStage(stage));
}

// The result of one app of an install run.
struct AppInstallResult {
  AppInfo app;
  bool success;                             // true only if the bundle is installed
  std::optional<std::string> errorMessage;  // for a person; "cancelled" for a cancelled app
  std::optional<ErrorCode> errorCode;       // stable code; absent when the failure has no code
  std::optional<Path> installedPath;        // the bundle's path, on success
  bool cancelled = false;                   // ended by a cancel
  bool alreadyCurrent = false;              // a success without a copy: the installed version was current

  static AppInstallResult installed(AppInfo app, std::optional<Path> path);
  // The installed version was current.
  static AppInstallResult skipped(AppInfo app, std::optional<Path> path);
  static AppInstallResult failed(AppInfo app, std::optional<std::string> message,
                                 std::optional<ErrorCode> code);
  // Cancelled, before or during its acquisition.
  static AppInstallResult givenUp(AppInfo app);

 private:
  AppInstallResult(AppInfo itsApp, bool isSuccess) : app{std::move(itsApp)}, success{isSuccess} {}
};

class InstallOrchestratorDelegate {
 public:
  virtual ~InstallOrchestratorDelegate() = default;

  // Overall progress of the run, 0 to 100.
  virtual void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                             double progress) = 0;

  // Called once per run, after the last app's result. The results are in finishing order; apps after a cancel
  // of the whole run have none.
  virtual void orchestratorDidFinish(const std::vector<AppInstallResult>& results) = 0;

  virtual void orchestratorDidUpdateApp(const std::string& /*appId*/, InstallStage /*stage*/,
                                        const Progress& /*progress*/) {}

  // The run waits for another engine: called when the wait begins, with a sentence for people, then once a
  // minute.
  virtual void orchestratorIsWaiting(const std::optional<std::string>& /*message*/) {}

  virtual void orchestratorDidCompleteApp(const AppInstallResult& /*result*/) {}
};

}  // namespace installer
