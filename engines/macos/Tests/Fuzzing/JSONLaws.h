// What holds for every JSON file that the engine reads, and how the targets spoil one.
#pragma once

#include <string>
#include <string_view>

#include "Base/JSONReader.h"

namespace installer::test {

// What the engine reads of `text`; null when it refuses it. Exactly what the grammar of JSON allows is read,
// and what was read and is written again reads the same.
Json readJSON(std::string_view text);

// `text`, which is an object, with one more member at its end: the last one of its name counts.
std::string withMember(std::string_view text, const std::string& key, std::string_view value);

// One of the values that no key takes. `text` determines which.
std::string_view badValue(std::string_view text);

}  // namespace installer::test
