// Flattens an event into the single JSON object that goes out, with the protocol version at its top.
//
// Presence of a key is part of the format. Three marks: a key that is always there; a key that is always
// there and null when its value is absent; a key that is left out when its value is absent.
#pragma once

#include <string>

#include "Base/Error.h"
#include "Engine/EngineEvent.h"

namespace installer {

// The result is one line of UTF-8 without its line feed, with no blanks between its parts and with slashes
// escaped. Bytes of a value that aren't UTF-8 come out as the replacement character. Any thread.
namespace EngineEnvelope {

// Fails for a percentage that isn't a finite number, and for nothing else.
// A `done` carries the retirement that stands when it is encoded, whatever earlier events said.
[[nodiscard]] Result<std::string> encode(const EngineEvent& event);

}  // namespace EngineEnvelope

}  // namespace installer
