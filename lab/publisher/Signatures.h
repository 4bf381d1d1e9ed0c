// Whether an image is signed as the engine demands. Blocks.
#pragma once

#include <filesystem>
#include <string>

#include "support/OrReason.h"

namespace lab {

// The image and each application at the top of its volume have to be valid, and signed by `team` under an
// authority that this machine believes. Takes the volume out into a scratch folder, which is removed.
OrReason<> checkSignatures(const std::filesystem::path& image, const std::string& team);

}  // namespace lab
