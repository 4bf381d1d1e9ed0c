// Compares a file's code, page by page, with the digests that its CodeDirectories hold.
#pragma once

#include <span>

#include "CodeDirectory.h"

namespace lab {

// Every page of every directory. `code` is the slice or file from its start; each directory's limit must
// lie inside. Large code is hashed on all processors; the threads have ended when this returns. The reason
// names the first page that differs, whichever thread found it.
Outcome<void> checkPages(ByteView code, std::span<const CodeDirectory> directories);

}  // namespace lab
