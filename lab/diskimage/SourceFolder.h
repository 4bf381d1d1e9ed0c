// Whether a folder can become a disk image without anything in it changing on the way. Any thread; reads
// only.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

// Fails, naming the culprit, for what the HFS+ maker would change silently or can't keep: ":" or a control
// character in a name, names that differ in case or composition alone, names that aren't UTF-8, anything that
// is neither file, folder nor link.
OrReason<> checkSourceFolder(const std::filesystem::path& folder);

}  // namespace lab
