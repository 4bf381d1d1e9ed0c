#include "Engine/JSONInstallDelegate.h"

#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Engine/RunEvents.h"
#include "Utils/ExistingAppDetector.h"

namespace installer {

namespace {

AppStatus successStatus(const AppInstallResult& result, Action action) {
  if (result.alreadyCurrent) return AppStatus::skipped;
  return action == Action::update ? AppStatus::updated : AppStatus::installed;
}

}  // namespace

JSONInstallDelegate::JSONInstallDelegate(std::size_t totalApps, Action action)
    : totalApps_{totalApps}, action_{action} {
}

AppResultEvent JSONInstallDelegate::resultEvent(const AppInstallResult& result, Action action) {
  if (result.success) {
    auto event = RunEvents::appResult(result.app, successStatus(result, action));
    event.installedPath = result.installedPath;
    event.installedVersion = ExistingAppDetector::installedVersion(result.app, result.installedPath);
    return event;
  }
  if (result.cancelled) return RunEvents::appResult(result.app, AppStatus::cancelled);
  return RunEvents::failure(result.app, result.errorCode.value_or(ErrorCode::installFailed));
}

void JSONInstallDelegate::enterStage(const std::string& appId, InstallStage stage) {
  const auto last = lastStage_.find(appId);
  if (last != lastStage_.end() && last->second == stage) return;
  lastStage_[appId] = stage;
  if (!stageIndex_.contains(appId)) stageIndex_[appId] = ++order_;
  EngineEmitter::emit({EngineEvent::Stage{
      .app = appId,
      .stage = appStage(stage),
      .index = stageIndex_[appId],
      .total = static_cast<std::int64_t>(totalApps_),
  }});
}

void JSONInstallDelegate::orchestratorDidUpdateApp(const std::string& appId, InstallStage stage,
                                                   const Progress& progress) {
  noteActivity();
  enterStage(appId, stage);
  EngineEmitter::emit({EngineEvent::Progress{.app = appId, .progress = progress, .stage = appStage(stage)}});
}

// The percentage is dropped: a shell reads percentages only from progress events.
void JSONInstallDelegate::orchestratorDidUpdateProgress(const std::string& statusText,
                                                        const std::string& detailText, double /*progress*/) {
  noteActivity();
  EngineEmitter::emit({EngineEvent::Log{
      .level = EventLevel::info,
      .message = detailText.empty() ? statusText : statusText + " — " + detailText,
  }});
}

void JSONInstallDelegate::orchestratorIsWaiting(const std::optional<std::string>& message) {
  noteActivity();
  if (message) RunEvents::emitLog(EventLevel::info, *message);
}

void JSONInstallDelegate::orchestratorDidCompleteApp(const AppInstallResult& result) {
  noteActivity();
  EngineEmitter::emit({EngineEvent::AppResult{resultEvent(result, action_)}});
}

}  // namespace installer
