// Property lists as XML text, for laying out bundles and the output of programs.
#pragma once

#include <string>

#include "Base/JSONReader.h"

namespace installer::test {

// Objects, arrays, strings, booleans, integers and reals. Anything else fails the test.
std::string propertyListText(const Json& value);

}  // namespace installer::test
