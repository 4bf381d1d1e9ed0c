// Drives a whole run without a person and without events: everything goes to the log, and the exit code says
// how it ended. A summary for scripts stands at the end of the log on every path, a cancelled run included.
//
// Main thread. Serves one run. Never fails as a whole: what goes wrong with an app is that app's status.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Installer/AppInstallResult.h"
#include "Models/AppInfo.h"
#include "Utils/RunOptions.h"

namespace installer {

class InstallOrchestrator;
class PackageProvider;

class SilentRunner {
 public:
  explicit SilentRunner(std::shared_ptr<PackageProvider> provider);

  // Blocks until the run has ended, turning the main run loop meanwhile, or until an install has been silent
  // for 600 seconds.
  std::int32_t run(const RunOptions& options);

  // Lets the app at work end whole and leaves out the rest: in the exit code they are cancelled, in the
  // summary they failed. What was installed isn't opened any more. Main queue, during `run`.
  void cancel();

 private:
  const std::shared_ptr<PackageProvider> provider_;
  std::shared_ptr<InstallOrchestrator> activeOrchestrator_;  // null but during an install
  bool isCancelled_ = false;

  std::int32_t runInstall(const RunOptions& options);
  std::vector<AppInstallResult> installAll(const std::vector<AppInfo>& apps);
  std::int32_t runUninstall(const RunOptions& options);
  bool mayGoOn();
  bool isConnected() const;
};

}  // namespace installer
