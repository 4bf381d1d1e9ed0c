// An install or update run, from its prechecks to `done`.
#include <algorithm>
#include <cassert>
#include <nlohmann/json.hpp>
#include <utility>

#include "Engine/EngineController.h"
#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Engine/JSONInstallDelegate.h"
#include "Engine/RunEvents.h"
#include "Installer/InstallRun.h"
#include "Installer/RunRules.h"
#include "Models/AppInfo.h"
#include "Models/PackageProvider.h"
#include "Platform/Machine.h"
#include "Utils/InstallerLifecycle.h"
#include "Utils/RunExitCode.h"
#include "Utils/SystemUtils.h"

namespace installer {

namespace {

std::vector<AppResultEvent> blanketFailure(const std::vector<AppInfo>& apps, ErrorCode errorCode) {
  std::vector<AppResultEvent> events;
  for (const auto& app : apps) events.push_back(RunEvents::emitted(RunEvents::failure(app, errorCode)));
  return events;
}

// Ends a run before it begins, for a reason that applies to all of its apps.
ExitCode stop(const std::string& message, ErrorCode errorCode, const std::vector<AppInfo>& apps,
              Action action, ExitCode exitCode) {
  RunEvents::emitLog(EventLevel::error, message);
  return RunEvents::done(action, exitCode, blanketFailure(apps, errorCode));
}

// Ends a run that can't begin; absent when it can.
std::optional<ExitCode> precheck(bool isOffline, const std::vector<AppInfo>& apps, Action action) {
  if (const auto retirement = InstallerLifecycle::expiry()) {
    return stop(RunRules::expiryMessage(*retirement), ErrorCode::notCompatible, apps, action,
                ExitCode::fullFailure);
  }
  if (!isOffline && !SystemUtils::isInternetReachable(RunRules::kConnectivityTimeout)) {
    return stop("No internet connection", ErrorCode::networkUnavailable, apps, action,
                ExitCode::networkFailure);
  }
  return std::nullopt;
}

bool hasResult(const AppInfo& app, const std::vector<AppInstallResult>& results) {
  return std::ranges::any_of(results, [&](const auto& result) { return result.app.id == app.id; });
}

// The results in finishing order, then the apps without a result. After a timeout there are no results, so
// every app counts as never reached, also one whose result was already emitted.
std::vector<AppResultEvent> finalEvents(const std::vector<AppInfo>& apps,
                                        const std::vector<AppInstallResult>& results, Action action) {
  std::vector<AppResultEvent> events;
  for (const auto& result : results) events.push_back(JSONInstallDelegate::resultEvent(result, action));
  for (const auto& app : apps) {
    if (hasResult(app, results)) continue;
    events.push_back(RunEvents::emitted(RunEvents::appResult(app, AppStatus::cancelled)));
  }
  return events;
}

}  // namespace

ExitCode EngineController::runInstall(const std::vector<AppIdentifier>& apps, Action action, bool strict) {
  assert(machine().dispatch.isMainThread());
  const auto resolved = RunRules::resolveApps(apps);
  if (resolved.empty()) return RunEvents::stopWithoutApps(action);
  if (const auto ended = precheck(provider_->isOfflineMode(), resolved, action)) return *ended;

  const auto delegate = std::make_shared<JSONInstallDelegate>(resolved.size(), action);
  activeRun_ = std::make_shared<InstallRun>(provider_, delegate);
  if (activeRun_->run(resolved) == InstallRun::End::idle) {
    RunEvents::emitLog(EventLevel::error,
                       "Engine idle timeout (600s with no progress); proceeding with partial results");
  }

  const auto events = finalEvents(resolved, delegate->results(), action);
  const auto exitCode = RunExitCode::forRun(RunEvents::statuses(events), strict,
                                            RunRules::anyPermissionDenied(delegate->results()));
  RunEvents::done(action, exitCode, events);
  activeRun_ = nullptr;
  return exitCode;
}

}  // namespace installer
