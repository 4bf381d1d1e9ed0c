// Writes the CodeResources of a bundle whose nested code is already signed.
#pragma once

#include "Bundle.h"
#include "Bytes.h"
#include "Digest.h"
#include "Outcome.h"

namespace lab {

// Nested code of a bundle, deepest last: what must be signed before the bundle can be sealed. Folders that
// look like code by their name and place, and Mach-O files in places for code; not the main executable.
Outcome<std::vector<std::filesystem::path>> findNestedCode(const Bundle& bundle);

// The property list. Files are sealed by `digest`: SHA-256, or SHA-1 as tools did that knew nothing better;
// nested code by the cdhashes it has now.
Outcome<std::string> makeCodeResources(const Bundle& bundle, HashType digest);

}  // namespace lab
