// The queries: hello, check-updates, disk-free, export-logs.
#include <cassert>

#include "Engine/EngineController.h"
#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Engine/RunEvents.h"
#include "Installer/RunRules.h"
#include "Models/PackageProvider.h"
#include "Platform/Machine.h"
#include "Utils/DiskRequirement.h"
#include "Utils/InstallerConfig.h"
#include "Utils/InstallerLifecycle.h"
#include "Utils/KeloAppProvider.h"
#include "Utils/Log.h"
#include "Utils/LogExport.h"
#include "Utils/UpdateChecker.h"

namespace installer {

namespace {

ExitCode done(Action action, ExitCode exitCode) {
  EngineEmitter::emit({EngineEvent::Done{.action = action, .exitCode = exitCode, .results = std::nullopt}});
  return exitCode;
}

std::vector<Capability> capabilities() {
  using enum Capability;
  // The functions of the engine, not its state: `offline` is listed in online mode too.
  std::vector<Capability> list{install, update, uninstall, checkUpdates, offline, exportLogs};
  if (!InstallerConfig::showTermsStep()) list.push_back(skipTerms);
  return list;
}

// Only a sweep that found no package causes the probe for a retired source.
std::optional<InstallerRetirement> retirementAfter(const UpdateSweep& sweep) {
  if (auto expired = InstallerLifecycle::expiry()) return expired;
  return sweep.allPackagesMissing ? InstallerLifecycle::confirmSourceRetired() : std::nullopt;
}

// The path itself, or its nearest existing parent; at last the root, or the current folder for a relative
// path.
Path nearestExisting(Path path) {
  while (path != "/" && !machine().files.fileExists(path)) {
    path = parentFolder(path);
    if (path.empty()) return ".";
  }
  return path;
}

}  // namespace

ExitCode EngineController::hello() {
  assert(machine().dispatch.isMainThread());
  // Detection only, for every source of packages: check-updates reports the available versions.
  const auto sweep = UpdateChecker::sweep(KeloAppProvider::shared().allApps(), false);
  const auto mode = provider_->isOfflineMode() ? PackageSourceMode::offline : PackageSourceMode::online;
  std::vector<CatalogAppEvent> apps;
  for (const auto& status : sweep.statuses) apps.push_back(UpdateEntries::catalogEntry(status, mode));
  EngineEmitter::emit({EngineEvent::Hello{
      .mode = mode,
      .capabilities = capabilities(),
      .apps = std::move(apps),
      .retirement = InstallerRetirementEvent::of(InstallerLifecycle::expiry()),
  }});
  return done(Action::hello, ExitCode::success);
}

ExitCode EngineController::checkUpdates(const std::vector<AppIdentifier>& apps) {
  assert(machine().dispatch.isMainThread());
  const auto sweep = UpdateChecker::sweep(RunRules::resolveApps(apps), !provider_->isOfflineMode());
  EngineEvent::UpdateCheckResult event{
      .apps = {},
      .retirement = InstallerRetirementEvent::of(retirementAfter(sweep)),
  };
  for (const auto& status : sweep.statuses) event.apps.push_back(UpdateEntries::updateCheckEntry(status));
  EngineEmitter::emit({std::move(event)});
  return done(Action::checkUpdates, ExitCode::success);
}

ExitCode EngineController::diskFree(const std::string& path) {
  assert(machine().dispatch.isMainThread());
  const auto asked = path.empty() ? machine().paths.applications : path;
  EngineEmitter::emit({EngineEvent::DiskFreeResult{
      .path = asked,
      .freeBytes = DiskRequirement::volumeFreeBytes(nearestExisting(asked)),
  }});
  return done(Action::diskFree, ExitCode::success);
}

ExitCode EngineController::exportLogs(const std::optional<std::string>& outDirectory) {
  assert(machine().dispatch.isMainThread());
  const auto archive = LogExport::exportLogs(outDirectory);
  if (!archive) {
    log("exportLogs failed: " + archive.error().localizedDescription);
    EngineEmitter::emit(
        {EngineEvent::ExportLogsResult{.path = std::nullopt, .errorCode = ErrorCode::unknown}});
    return done(Action::exportLogs, ExitCode::fullFailure);
  }
  EngineEmitter::emit({EngineEvent::ExportLogsResult{.path = *archive, .errorCode = std::nullopt}});
  return done(Action::exportLogs, ExitCode::success);
}

}  // namespace installer
