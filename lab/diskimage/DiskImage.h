// A disk image from a folder, and what an image file says about itself. Blocks; any thread.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"
#include "support/UDIFTrailer.h"

namespace lab {

// Makes the image file at `image`, replacing what stands there, with the content of `folder` as its one
// volume. What lies between, and the image until it is whole, are hidden siblings of `image`; a failure
// leaves nothing. A volume's name has 1 to 32 bytes, neither "/" nor ":".
OrReason<> makeDiskImage(const std::filesystem::path& folder, const std::string& volumeName,
                         const std::filesystem::path& image);

// The trailer of the image file.
OrReason<UDIFTrailer> readTrailer(const std::filesystem::path& image);

// Whether data fork, block tables and the list of these have the CRC-32 that the image promises. Checksums
// that aren't there, as in an image that was made without, aren't missed.
OrReason<> verifyChecksums(const std::filesystem::path& image);

}  // namespace lab
