#include "Engine/EngineEmitter.h"

#include <string>

#include "Engine/EngineEnvelope.h"
#include "Engine/EngineEvent.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer::EngineEmitter {

namespace {

LogLevel logLevel(EventLevel level) {
  switch (level) {
    case EventLevel::info: return LogLevel::info;
    case EventLevel::warn: return LogLevel::warn;
    case EventLevel::error: return LogLevel::error;
  }
  return LogLevel::info;
}

}  // namespace

void emit(const EngineEvent& event) {
  if (const auto* entry = std::get_if<EngineEvent::Log>(&event.payload)) {
    log("engine: " + entry->message, logLevel(entry->level));
  }
  auto line = EngineEnvelope::encode(event);
  if (!line) {
    logError("EngineEmitter: failed to encode event: " + line.error().localizedDescription);
    return;
  }
  // One write with the line feed: the stream keeps the bytes of a write together, so that no line of another
  // thread, for example of the logger, can be inside an event.
  *line += '\n';
  machine().streams.writeOutput(*line);
}

}  // namespace installer::EngineEmitter
