// Drives a whole run without a person and without events: everything goes to the log, and the exit code says
// how it ended. A summary for scripts stands at the end of the log on every path, a cancelled run included.
//
// Main thread. Serves one run. Never fails as a whole: what goes wrong with an app is that app's status.
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

// Writes the progress of an unattended run to the log. Signs of life are progress of
// the whole run and the wait for another engine.
class HeadlessInstallDelegate final : public InstallRunDelegate {
 public:
  void orchestratorDidUpdateProgress(const std::string& statusText, const std::string& detailText,
                                     double progress) override;
};

// The summary of an unattended run, as lines of the log that a script can find.
struct SummaryEntry {
  std::string appName;
  AppStatus status = AppStatus::failed;
  std::optional<std::string> detail;
};

// Values stand as they are: a quotation mark inside one isn't escaped.
void writeSummary(InstallerAction action, const std::vector<SummaryEntry>& entries, ExitCode exitCode,
                  const std::optional<std::string>& note);

class SilentRunner {
 public:
  explicit SilentRunner(std::shared_ptr<PackageProvider> provider);

  // Blocks until the run has ended, turning the main run loop meanwhile, or until an install has been silent
  // for 600 seconds.
  ExitCode run(const RunOptions& options);

  // Lets the app at work end whole and leaves out the rest: in the exit code they are cancelled, in the
  // summary they failed. What was installed isn't opened any more. Main queue, during `run`.
  void cancel();

 private:
  const std::shared_ptr<PackageProvider> provider_;
  std::shared_ptr<InstallRun> activeRun_;  // null but during an install
  bool isCancelled_ = false;

  ExitCode runInstall(const RunOptions& options);
  std::vector<AppInstallResult> installAll(const std::vector<AppInfo>& apps);
  ExitCode runUninstall(const RunOptions& options);
  bool mayGoOn();
  bool isConnected() const;
};

}  // namespace installer
