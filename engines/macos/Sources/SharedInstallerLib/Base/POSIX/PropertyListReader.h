// Property lists by libplist, within the limits of `PropertyListBounds`. Any thread.
#pragma once

#include <string_view>

#include "Base/Error.h"
#include "Base/JSONReader.h"

namespace installer {

// Reads XML or binary. Dates are seconds since 1970, data is a JSON binary. Integers are signed: the library
// doesn't distinguish one above 2^63-1 from a negative one. Malformed input, text that isn't UTF-8 and input
// beyond a limit fail with `CocoaError::fileReadCorrupt`.
[[nodiscard]] Result<Json> readPropertyList(std::string_view bytes);

}  // namespace installer
