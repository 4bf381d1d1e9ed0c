#include "Installer/InstallRun.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Installer/InstallOrchestrator.h"
#include "Installer/RunRules.h"
#include "Platform/Machine.h"

namespace installer {

namespace {

constexpr std::chrono::seconds kDeletionLimit{10};
// A slice of the main loop ends later than this only when the main thread was blocked.
constexpr Duration kLateness{1.0};

}  // namespace

InstallRunDelegate::InstallRunDelegate() : lastActivity_{machine().dispatch.now()} {
}

void InstallRunDelegate::noteActivity() {
  lastActivity_ = machine().dispatch.now();
}

void InstallRunDelegate::orchestratorDidFinish(const std::vector<AppInstallResult>& results) {
  results_ = results;
  isFinished_ = true;
}

void InstallRunDelegate::orchestratorIsWaiting(const std::optional<std::string>& /*message*/) {
  noteActivity();
}

void InstallRunDelegate::excludeFromIdleTime(Duration blocked) {
  const auto now = machine().dispatch.now();
  lastActivity_ = std::min(now, lastActivity_ + std::chrono::duration_cast<TimePoint::duration>(blocked));
}

InstallRun::InstallRun(const std::shared_ptr<PackageProvider>& provider,
                       std::shared_ptr<InstallRunDelegate> delegate)
    : delegate_{std::move(delegate)}, orchestrator_{std::make_shared<InstallOrchestrator>(provider)} {
  orchestrator_->setDelegate(delegate_);
}

InstallRun::End InstallRun::run(const std::vector<AppInfo>& apps) {
  assert(machine().dispatch.isMainThread());
  orchestrator_->startInstallation(apps);
  while (!delegate_->isFinished()) {
    const auto begin = machine().dispatch.now();
    if (begin >= delegate_->lastActivity() + kIdleLimit) return End::idle;
    machine().dispatch.runMainLoop(RunRules::kRunLoopSlice);
    // A password prompt blocks the main thread for as long as the user needs; the work continues after it.
    const Duration blocked = machine().dispatch.now() - begin - RunRules::kRunLoopSlice;
    if (blocked > kLateness) delegate_->excludeFromIdleTime(blocked);
  }
  waitForDeletion();
  return End::finished;
}

// A worker deletes the last download after it has reported the end; the process mustn't end before.
void InstallRun::waitForDeletion() {
  const auto limit = machine().dispatch.now() + kDeletionLimit;
  while (orchestrator_->isDeletingDownload() && machine().dispatch.now() < limit) {
    machine().dispatch.runMainLoop(RunRules::kRunLoopSlice);
  }
}

void InstallRun::cancelInstallation() {
  orchestrator_->cancelInstallation();
}

void InstallRun::cancelApp(AppIdentifier app) {
  orchestrator_->cancelApp(app);
}

}  // namespace installer
