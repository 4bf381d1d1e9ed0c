// Property lists by libplist, within the limits of `PropertyListBounds`. Any thread.
#pragma once

#include <string_view>

#include "Base/Error.h"
#include "Base/JSONReader.h"

namespace installer {

// XML or binary. Dates are seconds since 2001, data is binary. Integers are signed: the library doesn't
// distinguish one above 2^63-1 from a negative one. Malformed, also by text that isn't UTF-8 or beyond a
// limit, is `CocoaError::fileReadCorrupt`.
[[nodiscard]] Result<Json> readPropertyList(std::string_view bytes);

}  // namespace installer
