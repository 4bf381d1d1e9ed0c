// Extracts the volume of a disk image: the files, folders and links of a mounted image. Blocks.
#pragma once

#include <filesystem>
#include <string>

#include "diskimage/VolumeListing.h"
#include "support/OrReason.h"

namespace lab {

struct ExtractedVolume {
  std::string name;  // a plain file name, composed
  VolumeFormat format = VolumeFormat::hfs;
  std::filesystem::path folder;  // the volume's root, inside the scratch folder
};

// `scratch` is an empty folder; nothing is written outside it. The caller removes its content, also after a
// failure. Names of an HFS+ volume are composed, links and modes are unchanged, the system's own items and
// set-id bits are left out. Fails when an extracted item differs from the listing. Every file and folder gets
// the quarantine attribute where the file system supports such attributes.
OrReason<ExtractedVolume> extractVolume(const std::filesystem::path& image,
                                        const std::filesystem::path& scratch);

}  // namespace lab
