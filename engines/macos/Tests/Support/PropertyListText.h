// Property lists as XML text, for bundles and the output of programs.
#pragma once

#include <string>

#include "Base/JSONReader.h"

namespace installer::test {

// Accepts objects, arrays, strings, booleans, integers and reals. Another value fails the test.
std::string propertyListText(const Json& value);

}  // namespace installer::test
