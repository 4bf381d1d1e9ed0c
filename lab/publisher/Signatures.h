// Checks that an image is signed as the engine requires. Blocks.
#pragma once

#include <filesystem>

#include "publisher/Arguments.h"
#include "support/OrReason.h"

namespace lab {

// The image and each application at the top of its volume must be valid and signed by `team` under a trusted
// authority. Extracts the volume into a scratch folder and removes it.
OrReason<> checkSignatures(const std::filesystem::path& image, const ExpectedTeam& team);

}  // namespace lab
