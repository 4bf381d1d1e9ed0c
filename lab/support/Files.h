// Small file operations that the lab's programs share. Any thread. Nothing here follows a symbolic link that
// stands in the last place of a path.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "Base/POSIX/MessageDigest.h"
#include "support/OrReason.h"

namespace lab {

namespace fs = std::filesystem;

OrReason<std::string> readFile(const fs::path& file);

// Writes to a hidden sibling and renames it: `file` is either as it was or whole.
OrReason<> writeFile(const fs::path& file, std::string_view bytes);

// Writes all of it, also through short writes and interruptions.
OrReason<> writeAll(int descriptor, std::string_view bytes);

// Removes whatever stands at `path`; folders without write permission for the owner are opened up first.
// Nothing there is fine.
OrReason<> removeTree(const fs::path& path);

// A name for unfinished work of this process, "{prefix}{process}-XXXXXX", for mkstemp and mkdtemp.
std::string nameOfWork(std::string_view prefix);

// Removes what unfinished work with this prefix left in `folder` when its process died. Best effort.
void clearLeftovers(const fs::path& folder, std::string_view prefix);

// A file's SHA-256 in lower-case hexadecimal.
OrReason<std::string> sha256OfFile(const fs::path& file);

installer::SHA256Bytes sha256(std::string_view text);

// True when something stands at `path`, a dangling link included.
bool stands(const fs::path& path);

}  // namespace lab
