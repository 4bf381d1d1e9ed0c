// What a publisher has to know of a disk image. Reads the whole file.
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

// Fails for anything that isn't a plain file with the trailer of a disk image and the data that it speaks of.
OrReason<ImageFacts> examineImage(const std::filesystem::path& image);

// Whether the image holds an app of this bundle identifier and version. The engine installs the only bundle
// of an image under any identifier, and offers an update for ever to those who get another version than
// promised.
OrReason<> checkBundle(const std::filesystem::path& image, const std::string& identifier,
                       const std::string& version);

}  // namespace lab
