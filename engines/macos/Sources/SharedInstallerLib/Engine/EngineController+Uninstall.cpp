// An uninstall run, without an orchestrator and without a precheck: an expired installer can still remove
// apps.
#include <algorithm>
#include <cassert>
#include <nlohmann/json.hpp>
#include <utility>

#include "Engine/EngineController.h"
#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Engine/RunEvents.h"
#include "Installer/AppTurn.h"
#include "Installer/AppUninstaller.h"
#include "Installer/RunRules.h"
#include "Models/AppInfo.h"
#include "Platform/Machine.h"
#include "Utils/RunExitCode.h"

namespace installer {

namespace {

// The first true condition decides.
AppResultEvent resultEvent(const UninstallResult& result) {
  if (result.success) {
    return RunEvents::appResult(result.app,
                                result.alreadyAbsent ? AppStatus::alreadyAbsent : AppStatus::uninstalled);
  }
  if (result.skipped) {
    auto event = RunEvents::appResult(result.app, AppStatus::skipped);
    event.errorCode = ErrorCode::skipped;
    return event;
  }
  if (result.authCancelled) return RunEvents::failure(result.app, ErrorCode::uninstallAuthCancelled);
  if (result.permissionDenied) return RunEvents::failure(result.app, ErrorCode::uninstallPermissionDenied);
  return RunEvents::failure(result.app, ErrorCode::uninstallFailed);
}

void announce(const AppInfo& app, std::size_t index, std::size_t total) {
  const std::string identifier{rawValue(app.id)};
  EngineEmitter::emit({EngineEvent::Stage{.app = identifier,
                                          .stage = AppStage::uninstall,
                                          .index = static_cast<std::int64_t>(index),
                                          .total = static_cast<std::int64_t>(total)}});
  EngineEmitter::emit({EngineEvent::Progress{
      .app = identifier, .progress = {.percent = 100, .indeterminate = true}, .stage = AppStage::uninstall}});
}

void emitWait(const std::optional<std::string>& message) {
  if (message) RunEvents::emitLog(EventLevel::info, *message);
}

// A dismissed administrator prompt counts as a denied permission.
bool isDeniedPermission(const AppResultEvent& event) {
  return event.errorCode == ErrorCode::uninstallPermissionDenied ||
         event.errorCode == ErrorCode::uninstallAuthCancelled;
}

}  // namespace

ExitCode EngineController::runUninstall(const std::vector<AppIdentifier>& apps, bool strict) {
  assert(machine().dispatch.isMainThread());
  const auto resolved = RunRules::resolveApps(apps);
  if (resolved.empty()) return RunEvents::stopWithoutApps(Action::uninstall);

  std::vector<AppResultEvent> events;
  for (std::size_t i = 0; i < resolved.size(); ++i) {
    events.push_back(RunEvents::emitted(uninstallUnlessCancelled(resolved[i], i + 1, resolved.size())));
  }
  const auto exitCode = RunExitCode::forRun(RunEvents::statuses(events), strict,
                                            std::ranges::any_of(events, isDeniedPermission));
  return RunEvents::done(Action::uninstall, exitCode, events);
}

AppResultEvent EngineController::uninstallUnlessCancelled(const AppInfo& app, std::size_t index,
                                                          std::size_t total) {
  // A cancel can land here and during a wait: the removal blocks this thread.
  machine().dispatch.runMainLoop(RunRules::kRunLoopSlice);
  if (uninstallCancelled_) return RunEvents::appResult(app, AppStatus::cancelled);
  const auto turn = AppTurns::take(app, {.goesOn =
                                             [this] {
                                               machine().dispatch.runMainLoop(AppTurns::kLookInterval);
                                               return !uninstallCancelled_;
                                             },
                                         .report = emitWait});
  if (!turn && turn.error() == AppTurns::Denied::timedOut) {
    return RunEvents::failure(app, ErrorCode::uninstallFailed);
  }
  if (!turn) return RunEvents::appResult(app, AppStatus::cancelled);
  announce(app, index, total);
  return resultEvent(AppUninstaller::uninstall(app, true));
}

}  // namespace installer
