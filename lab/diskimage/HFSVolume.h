// Makes a bare HFS+ volume from a folder, with xorriso. Blocks; any thread.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

// Writes the volume to `volumeFile`; `scratch` is an existing folder for intermediate files. With
// SOURCE_DATE_EPOCH set, the same content gives the same bytes.
OrReason<> makeHFSVolume(const std::filesystem::path& folder, const std::string& volumeName,
                         const std::filesystem::path& scratch, const std::filesystem::path& volumeFile);

}  // namespace lab
