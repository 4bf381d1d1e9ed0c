// Encodes an event as the JSON object of its line, with the protocol version as its first key.
//
// The presence of a key is part of the format. There are three marks: always present; always present and null
// when its value is absent; left out when its value is absent.
#pragma once

#include <string>

#include "Base/Error.h"
#include "Engine/EngineEvent.h"

namespace installer {

// The result is one line of UTF-8 without its line feed, without blanks between its parts and with escaped
// slashes. Bytes that aren't UTF-8 become the replacement character. Any thread.
namespace EngineEnvelope {

// Fails only for a percentage that isn't a finite number. A `done` has the retirement at the time of its
// encoding, which can differ from that in earlier events.
[[nodiscard]] Result<std::string> encode(const EngineEvent& event);

}  // namespace EngineEnvelope

}  // namespace installer
