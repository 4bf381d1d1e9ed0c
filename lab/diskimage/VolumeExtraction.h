// Takes the volume out of a disk image, as the files, folders and links that a mounted image shows. Blocks.
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

// `scratch` is an empty folder of the caller's, which also clears it, after a failure too. Nothing is written
// outside it. Names of an HFS+ volume come out composed, links and modes as they are in the volume, its
// system's own items and the set-id bits not at all. Fails when anything that is listed comes out changed.
// Every file and folder carries the quarantine attribute where the file system keeps such attributes.
OrReason<ExtractedVolume> extractVolume(const std::filesystem::path& image,
                                        const std::filesystem::path& scratch);

}  // namespace lab
