// Writes all events: one line of JSON each on standard output. Stateless; any thread.
#pragma once

#include "Engine/EngineEvent.h"

namespace installer::EngineEmitter {

// Writes `event` as one line and returns when the bytes are in the pipe. A log event is also written to the
// log file. Reports no failure: for an event that can't be encoded it writes a line to the log file and
// nothing to standard output.
void emit(const EngineEvent& event);

}  // namespace installer::EngineEmitter
