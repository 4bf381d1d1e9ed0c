// The one way out for events: a line of JSON on standard output each.
// Stateless; any thread.
#pragma once

#include "Engine/EngineEvent.h"

namespace installer::EngineEmitter {

// Writes `event` as one line, whole, and returns when the bytes have reached the pipe. A log event goes to
// the log file too. Never fails towards the caller: an event that can't be encoded costs a line in the log
// file, and nothing reaches standard output.
void emit(const EngineEvent& event);

}  // namespace installer::EngineEmitter
