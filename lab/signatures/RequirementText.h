// The textual requirement language.
#pragma once

#include <string_view>

#include "Outcome.h"
#include "Requirement.h"

namespace lab {

// Parses `text`, without the leading equals sign of the command line. Bare values are letters, digits,
// underscores and inner dots; other values need double quotes or are written as bytes: 0x and hexadecimal
// digits, which seals use for an identifier that isn't plain text. Text after the requirement is a failure.
Outcome<Requirement> parseRequirement(std::string_view text);

}  // namespace lab
