// Property lists of signed code: some are longer than the engine reads.
#pragma once

#include "Base/JSONReader.h"
#include "Bytes.h"
#include "Outcome.h"

namespace lab {

using installer::Json;

// Reads XML or binary, with the engine's reader. Up to 64 MiB, and at most 2 million values and keys: more
// than the seals of any bundle. A binary list may have 1,000 more values than bytes.
Outcome<Json> readPropertyList(ByteView bytes);

}  // namespace lab
