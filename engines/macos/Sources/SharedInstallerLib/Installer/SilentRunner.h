// Drives a whole run without a person and without events: everything goes to the log, and the exit code says
// how it ended. A summary for scripts stands at the end of the log on every path.
//
// Main thread. Serves one run. Never fails as a whole: what goes wrong with an app is that app's status.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Models/AppInfo.h"
#include "Utils/RunOptions.h"

namespace installer {

class PackageProvider;

class SilentRunner {
 public:
  explicit SilentRunner(std::shared_ptr<PackageProvider> provider);

  // Blocks until the run has ended, turning the main run loop meanwhile, or until an install has been silent
  // for 600 seconds.
  std::int32_t run(const RunOptions& options);

 private:
  const std::shared_ptr<PackageProvider> provider_;

  std::int32_t runInstall(const RunOptions& options);
  std::int32_t runUninstall(const RunOptions& options);
  bool isConnected() const;
};

}  // namespace installer
