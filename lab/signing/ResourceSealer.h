// Writes the CodeResources of a bundle whose nested code is already signed.
#pragma once

#include "Bundle.h"
#include "Bytes.h"
#include "Digest.h"
#include "Outcome.h"

namespace lab {

// The nested code of a bundle, deepest last, which must be signed before the bundle is sealed: folders with
// the name and place of code, and Mach-O files in places for code; not the main executable.
Outcome<std::vector<std::filesystem::path>> findNestedCode(const Bundle& bundle);

// The property list. Files are sealed by `digest`: SHA-256, or SHA-1 like older tools; nested code by its
// current cdhashes.
Outcome<std::string> makeCodeResources(const Bundle& bundle, HashType digest);

}  // namespace lab
