// The requirement language as people write it.
#pragma once

#include <string_view>

#include "Outcome.h"
#include "Requirement.h"

namespace lab {

// `text` without the equals sign that tells text from a file name. Bare values are letters, digits,
// underscores and inner dots; anything else needs double quotes, or stands as its bytes: 0x and hexadecimal
// digits, which is how a seal names code whose identifier isn't plain text. Whatever doesn't parse to its
// very end is a failure.
Outcome<Requirement> parseRequirement(std::string_view text);

}  // namespace lab
