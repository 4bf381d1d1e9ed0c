// Assesses whether a disk image may be opened, like Gatekeeper on the platform.
#pragma once

#include <filesystem>
#include <string>

#include "Verifier.h"

namespace lab {

struct Assessment {
  bool accepted = false;
  std::string source;  // the signer that the verdict is based on, or why there is none
  std::string origin;  // the leaf's name; empty without a proven signer
};

// Accepts only a disk image with its own valid signature under a Developer ID chain and a secure timestamp.
// Any doubt is a rejection.
Assessment assess(const Verifier& verifier, const std::filesystem::path& path);

}  // namespace lab
