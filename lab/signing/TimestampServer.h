// Requests a token from a timestamping server (RFC 3161).
#pragma once

#include <string>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

// The token for the SHA-256 of `signature`, with the server's certificates. Blocks for at most a minute.
// Checks that the token is for these bytes and this request; the verifier of the signature checks its signer.
Outcome<Bytes> timestampFrom(const std::string& url, ByteView signature);

}  // namespace lab
