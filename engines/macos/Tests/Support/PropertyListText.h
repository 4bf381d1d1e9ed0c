// Property lists as XML text, for laying out bundles and the output of programs.
#pragma once

#include <string>

#include "Platform/Json.h"

namespace installer::testing {

// Objects, arrays, strings, booleans, integers and reals. Anything else fails the test.
std::string propertyListText(const Json& value);

}  // namespace installer::testing
