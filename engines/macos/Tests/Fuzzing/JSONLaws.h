// Laws for every JSON file that the engine reads, and changes of such files by the targets.
#pragma once

#include <string>
#include <string_view>

#include "Base/JSONReader.h"

namespace installer::test {

// The engine's value of `text`; null when it refuses it. Requires that exactly the texts of JSON's grammar
// are accepted, and that the value, written and read again, is the same.
Json readJSON(std::string_view text);

// `text`, which is an object, with an additional last member. The last member of a name is the valid one.
std::string withMember(std::string_view text, const std::string& key, std::string_view value);

// A value that no key accepts, selected by `text`.
std::string_view badValue(std::string_view text);

}  // namespace installer::test
