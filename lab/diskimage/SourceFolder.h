// Whether a folder became a volume without anything in it changing on the way. Any thread; reads only.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

// The maker of HFS+ volumes changes some names silently: ":", names that differ in case or composition alone,
// letters that were decomposed in another way when HFS+ was new. Fails, naming the culprit, where the volume
// in `volumeFile` doesn't hold exactly the files, folders and links of `folder`, of the same sizes.
OrReason<> checkKept(const std::filesystem::path& folder, const std::filesystem::path& volumeFile,
                     const std::string& volumeName);

}  // namespace lab
