#include "Installer/RunningInstances.h"

#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr Duration kGracePeriod{5.0};

// True when no instance runs any more; false when the grace period is over.
bool allQuitInTime(const std::vector<std::string>& bundleIdentifiers, Duration lookInterval) {
  Dispatch& dispatch = machine().dispatch;
  const auto deadline = dispatch.now() + std::chrono::duration_cast<TimePoint::duration>(kGracePeriod);
  while (dispatch.now() < deadline) {
    if (runningInstances(bundleIdentifiers).empty()) return true;
    dispatch.sleep(lookInterval);
  }
  return false;
}

}  // namespace

std::vector<RunningApplication> runningInstances(const std::vector<std::string>& bundleIdentifiers) {
  std::vector<RunningApplication> running;
  for (const std::string& identifier : bundleIdentifiers) {
    for (auto& instance : machine().runningApplications.instances(identifier)) {
      running.push_back(std::move(instance));
    }
  }
  return running;
}

std::string nameOf(const RunningApplication& application) {
  return application.localizedName.value_or("unknown");
}

void quitRunningInstances(const std::vector<std::string>& bundleIdentifiers, const QuitManner& manner) {
  const auto running = runningInstances(bundleIdentifiers);
  if (running.empty()) return;
  for (const auto& application : running) {
    log("{}: {}", manner.speaker, manner.request(application));
    machine().runningApplications.terminate(application);
  }
  if (allQuitInTime(bundleIdentifiers, manner.lookInterval)) return;

  const auto remaining = runningInstances(bundleIdentifiers);
  for (const auto& application : remaining) {
    log("{}: Force killing {} (pid {})", manner.speaker, nameOf(application), application.processIdentifier);
    machine().runningApplications.forceTerminate(application);
  }
  if (manner.settlesAfterEveryWait || !remaining.empty()) machine().dispatch.sleep(manner.settlingTime);
}

}  // namespace installer
