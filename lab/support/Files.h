// Small file operations of the lab's programs. Any thread. None follows a symbolic link as the last component
// of a path.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "Base/POSIX/MessageDigest.h"
#include "support/OrReason.h"

namespace lab {

namespace fs = std::filesystem;

OrReason<std::string> readFile(const fs::path& file);

// Writes a hidden sibling and renames it: `file` has its old or all of its new bytes.
OrReason<> writeFile(const fs::path& file, std::string_view bytes);

// Writes all bytes, also after short writes and interruptions.
OrReason<> writeAll(int descriptor, std::string_view bytes);

// Removes the item at `path`; makes folders without write permission for the owner writable first. Succeeds
// when there is no such item.
OrReason<> removeTree(const fs::path& path);

// A name for this process's unfinished work, "{prefix}{process}-XXXXXX", for mkstemp and mkdtemp.
std::string nameOfWork(std::string_view prefix);

// Removes the unfinished work with this prefix in `folder` whose process has ended. Failures are ignored.
void clearLeftovers(const fs::path& folder, std::string_view prefix);

// A file's SHA-256 in lower-case hexadecimal.
OrReason<std::string> sha256OfFile(const fs::path& file);

installer::SHA256Bytes sha256(std::string_view text);

// True when `path` exists, also as a dangling link.
bool itemExists(const fs::path& path);

}  // namespace lab
