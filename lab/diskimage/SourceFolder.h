// Checks that a volume has the unchanged content of a folder. Any thread; reads only.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

// Fails, with the name of the item, unless the volume in `volumeFile` has exactly the files, folders and
// links of `folder`, of the same sizes. The maker of HFS+ volumes changes some names silently: names with
// ":", names that differ only in case or composition, and letters that early HFS+ decomposes differently.
OrReason<> checkKept(const std::filesystem::path& folder, const std::filesystem::path& volumeFile,
                     const std::string& volumeName);

}  // namespace lab
