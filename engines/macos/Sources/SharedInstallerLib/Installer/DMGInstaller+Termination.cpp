// Quitting what runs before it is replaced: asked first, forced after five seconds.
#include <atomic>
#include <fmt/format.h>

#include "Installer/DMGInstaller.h"
#include "Installer/RunningInstances.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

using namespace std::chrono_literals;

constexpr Duration gracePeriod = 5s;
constexpr Duration lookInterval = 250ms;
constexpr Duration settlingTime = 1s;

// Looks at once and then four times a second, for at most the grace period.
void waitUntilAllQuit(const std::vector<std::string>& bundleIdentifiers) {
  const auto allQuit = machine().dispatch.makeSemaphore(0);
  const auto isOver = std::make_shared<std::atomic<bool>>(false);
  const auto timer = machine().dispatch.startTimer(lookInterval, [bundleIdentifiers, allQuit, isOver] {
    if (*isOver || !runningInstances(bundleIdentifiers).empty()) return;
    *isOver = true;  // a firing that is already on its way looks no more
    allQuit->signal();
  });
  // Whether they quit or time ran out shows in the next look.
  (void)allQuit->waitFor(gracePeriod);
  timer->cancel();
}

}  // namespace

void DMGInstaller::terminateRunningApp(const std::vector<std::string>& knownBundleIdentifiers) {
  const auto running = runningInstances(knownBundleIdentifiers);
  if (running.empty()) return;
  for (const auto& application : running) {
    log(fmt::format("DMGInstaller: {} is running (pid {}) — sending graceful quit", nameOf(application),
                    application.processIdentifier));
    machine().runningApplications.terminate(application);
  }
  waitUntilAllQuit(knownBundleIdentifiers);

  const auto remaining = runningInstances(knownBundleIdentifiers);
  for (const auto& application : remaining) {
    log(fmt::format("DMGInstaller: Force killing {} (pid {})", nameOf(application),
                    application.processIdentifier));
    machine().runningApplications.forceTerminate(application);
  }
  if (!remaining.empty()) machine().dispatch.sleep(settlingTime);
}

}  // namespace installer
