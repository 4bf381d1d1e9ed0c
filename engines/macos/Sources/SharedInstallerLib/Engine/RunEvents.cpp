#include "Engine/RunEvents.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "Engine/EngineEmitter.h"
#include "Engine/EngineVocabulary.h"
#include "Models/AppConstants.h"
#include "Models/AppInfo.h"
#include "Models/AppStatus.h"

namespace installer::RunEvents {

AppResultEvent appResult(const AppInfo& app, std::string_view status) {
  AppResultEvent event;
  event.app = rawValue(app.id);
  event.status = status;
  return event;
}

AppResultEvent failure(const AppInfo& app, std::string_view errorCode) {
  auto event = appResult(app, AppStatus::failed);
  event.errorCode = errorCode;
  return event;
}

AppResultEvent emitted(AppResultEvent event) {
  EngineEmitter::emit({EngineEvent::AppResult{event}});
  return event;
}

void emitLog(std::string_view level, const std::string& message) {
  EngineEmitter::emit({EngineEvent::Log{.level = std::string{level}, .message = message}});
}

std::int32_t done(const std::string& action, std::int32_t exitCode, std::vector<AppResultEvent> results) {
  EngineEmitter::emit(
      {EngineEvent::Done{.action = action, .exitCode = exitCode, .results = std::move(results)}});
  return exitCode;
}

std::int32_t stopWithoutApps(const std::string& action) {
  emitLog(EventLevel::error, "No valid app identifiers supplied");
  return done(action, AppConstants::ExitCode::invalidArguments, {});
}

std::vector<std::string> statuses(const std::vector<AppResultEvent>& events) {
  std::vector<std::string> words;
  words.reserve(events.size());
  for (const auto& event : events) words.push_back(event.status);
  return words;
}

}  // namespace installer::RunEvents
