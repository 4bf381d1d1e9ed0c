// Makes a disk image from a folder, and reads an image's trailer and checksums. Blocks; any thread.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"
#include "support/UDIFTrailer.h"

namespace lab {

// Makes or replaces the image file at `image`, with the content of `folder` as its only volume. Intermediate
// files and the incomplete image are hidden siblings of `image`; a failure leaves nothing. A volume's name
// has 1 to 32 bytes, without "/" and ":".
OrReason<> makeDiskImage(const std::filesystem::path& folder, const std::string& volumeName,
                         const std::filesystem::path& image);

// The trailer of the image file.
OrReason<UDIFTrailer> readTrailer(const std::filesystem::path& image);

// Checks the CRC-32 of the data fork, of the block tables and of the list of these. An image without
// checksums passes.
OrReason<> verifyChecksums(const std::filesystem::path& image);

}  // namespace lab
