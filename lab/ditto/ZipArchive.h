// Packs a folder as a PKZip archive. Blocks.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

enum class Parent { keep, leaveOut };

// Writes `archive`, replacing what stands there, once it is whole; a failure leaves nothing. The entries are
// the content of the folder `source`, sorted, below its own name if the parent is kept, with modes, times and
// links; extended attributes aren't packed. A `source` that is a file is the one entry.
OrReason<> packZip(const std::filesystem::path& source, const std::filesystem::path& archive, Parent parent);

}  // namespace lab
