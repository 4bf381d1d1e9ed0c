// Quitting what runs before it is removed: asked first, forced after five seconds.
#include <fmt/format.h>

#include "Installer/AppUninstaller.h"
#include "Installer/RunningInstances.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

using namespace std::chrono_literals;

constexpr Duration gracePeriod = 5s;
constexpr Duration lookInterval = 500ms;
constexpr Duration settlingTime = 500ms;

// True as soon as a look finds nothing running; false when the grace period ran out.
bool allQuitInTime(const std::vector<std::string>& bundleIdentifiers) {
  Dispatch& dispatch = machine().dispatch;
  const auto deadline = dispatch.now() + std::chrono::duration_cast<TimePoint::duration>(gracePeriod);
  while (dispatch.now() < deadline) {
    if (runningInstances(bundleIdentifiers).empty()) return true;
    dispatch.sleep(lookInterval);
  }
  return false;
}

}  // namespace

void AppUninstaller::terminateRunningApp(const std::vector<std::string>& bundleIdentifiers) {
  const auto running = runningInstances(bundleIdentifiers);
  if (running.empty()) return;
  for (const auto& application : running) {
    log(fmt::format("AppUninstaller: Sending graceful quit to {} (pid {})", nameOf(application),
                    application.processIdentifier));
    machine().runningApplications.terminate(application);
  }
  if (allQuitInTime(bundleIdentifiers)) return;

  for (const std::string& identifier : bundleIdentifiers) {
    for (const auto& application : machine().runningApplications.instances(identifier)) {
      log(fmt::format("AppUninstaller: Force killing {} (pid {})", nameOf(application),
                      application.processIdentifier));
      machine().runningApplications.forceTerminate(application);
    }
  }
  machine().dispatch.sleep(settlingTime);
}

}  // namespace installer
