// Packs a folder as a PKZip archive. Blocks.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

enum class Parent { keep, leaveOut };

// Writes or replaces `archive` when it is complete; a failure leaves nothing. The entries are the content of
// the folder `source`, sorted, below its own name if the parent is kept, with modes, times and links;
// extended attributes aren't packed. If `source` is a file, it is the only entry.
OrReason<> packZip(const std::filesystem::path& source, const std::filesystem::path& archive, Parent parent);

}  // namespace lab
