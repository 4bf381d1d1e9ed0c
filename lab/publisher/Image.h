// The facts of a disk image that a publisher needs. Reads the whole file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

struct ImageFacts {
  std::int64_t size = 0;  // bytes
  std::string sha256;     // lower-case hexadecimal
};

// Fails unless the file is a plain file with the trailer of a disk image and the data that the trailer
// describes.
OrReason<ImageFacts> examineImage(const std::filesystem::path& image);

// Fails unless the image has an app with this bundle identifier and version. The engine installs the only
// bundle of an image with any identifier; with another version than published, the app would always have an
// update.
OrReason<> checkBundle(const std::filesystem::path& image, const std::string& identifier,
                       const std::string& version);

}  // namespace lab
