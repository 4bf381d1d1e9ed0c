// Conducts an unattended run, without events: it reports to the log and by its exit code. Every run, also a
// cancelled one, ends with a summary for scripts in the log.
//
// Main thread. For one run. Never fails as a whole: a failure of an app is that app's status.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Installer/InstallRun.h"
#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"
#include "Utils/RunOptions.h"

namespace installer {

// Writes the progress of an unattended run to the log. Progress of the whole run and the wait for another
// engine restart the idle time.
class HeadlessInstallDelegate final : public InstallRunDelegate {
 public:
  void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                     double progress) override;
};

// One app's entry in the summary of an unattended run.
struct SummaryEntry {
  std::string appName;
  AppStatus status = AppStatus::failed;
  std::optional<std::string> detail;
};

// Writes the summary to the log. Values aren't escaped, also quotation marks in them.
void writeSummary(InstallerAction action, const std::vector<SummaryEntry>& entries, ExitCode exitCode,
                  const std::optional<std::string>& note);

class SilentRunner {
 public:
  explicit SilentRunner(std::shared_ptr<PackageProvider> provider);

  // Blocks until the run has ended, or until an install has made no progress for 600 seconds. Serves the main
  // run loop meanwhile.
  ExitCode run(const RunOptions& options);

  // Completes the current app and leaves out the rest: they count as cancelled in the exit code and as failed
  // in the summary. Installed apps aren't opened. Main queue, during `run`.
  void cancel();

 private:
  const std::shared_ptr<PackageProvider> provider_;
  std::shared_ptr<InstallRun> activeRun_;  // null except during an install
  bool isCancelled_ = false;

  ExitCode runInstall(const RunOptions& options);
  std::vector<AppInstallResult> installAll(const std::vector<AppInfo>& apps);
  ExitCode runUninstall(const RunOptions& options);
  bool mayGoOn();
  bool isConnected() const;
};

}  // namespace installer
