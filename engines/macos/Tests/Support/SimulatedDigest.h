// SHA-256 by OpenSSL.
#pragma once

#include <string>

#include "Platform/Digest.h"

namespace installer::test {

class SimulatedDigest : public Digest {
 public:
  std::unique_ptr<SHA256> startSHA256() override;
};

// In lower-case hexadecimal.
std::string sha256(std::string_view bytes);

}  // namespace installer::test
