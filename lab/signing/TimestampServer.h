// Asks a timestamping server (RFC 3161) for a token.
#pragma once

#include <string>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

// The token for the SHA-256 of `signature`, with the server's certificates. Blocks for a minute at most. The
// token is for these bytes and answers this very request; whose it is, the verifier of the signature judges.
Outcome<Bytes> timestampFrom(const std::string& url, ByteView signature);

}  // namespace lab
