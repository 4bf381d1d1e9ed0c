// Compares a file's code, page by page, with the digests that its CodeDirectories hold.
#pragma once

#include <span>

#include "CodeDirectory.h"

namespace lab {

// Every page of every directory. The code is walked once, in windows that stay in the cache, whatever
// the number of directories. `code` is the slice or file from its start; each directory's limit must
// lie inside. The reason names the first page that differs.
Outcome<void> checkPages(ByteView code, std::span<const CodeDirectory> directories);

}  // namespace lab
