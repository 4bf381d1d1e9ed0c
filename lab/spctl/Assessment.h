// Whether a disk image may be opened: the question that Gatekeeper answers on the platform.
#pragma once

#include <filesystem>
#include <string>

#include "Verifier.h"

namespace lab {

struct Assessment {
  bool accepted = false;
  std::string source;  // whose signature the verdict rests on, or why there is none
  std::string origin;  // the leaf's name; empty when nobody proven signed it
};

// Accepts only a disk image that is signed itself, validly, under a Developer ID chain with a secure
// timestamp. Every doubt is a rejection.
Assessment assess(const Verifier& verifier, const std::filesystem::path& path);

}  // namespace lab
