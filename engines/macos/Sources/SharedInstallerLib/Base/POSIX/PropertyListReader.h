// Property lists by libplist. Any thread.
#pragma once

#include <string_view>

#include "Base/Error.h"
#include "Base/JSONReader.h"
#include "Base/POSIX/PropertyListBounds.h"

namespace installer {

// Reads XML or binary. Dates are seconds since 1970, data is a JSON binary. Integers are signed: the library
// doesn't distinguish one above 2^63-1 from a negative one. Malformed input, text that isn't UTF-8, a key
// twice in a binary dictionary and input beyond `bounds` fail with `CocoaError::fileReadCorrupt`.
[[nodiscard]] Result<Json> readPropertyList(std::string_view bytes, const PropertyListBounds& bounds = {});

}  // namespace installer
