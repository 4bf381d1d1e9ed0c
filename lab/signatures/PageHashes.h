// Compares a file's code, page by page, with the digests of its CodeDirectories.
#pragma once

#include <span>

#include "CodeDirectory.h"

namespace lab {

// Checks every page of every directory. `code` is the slice or file from its start; each directory's limit
// must be inside it. Large code is hashed on all processors; the threads have ended when this returns. The
// reason names the first page that differs.
Outcome<void> checkPages(ByteView code, std::span<const CodeDirectory> directories);

}  // namespace lab
