// SHA-256 by the system's crypto library.
#pragma once

#include "Platform/Digest.h"

namespace installer {

class LinuxDigest : public Digest {
 public:
  std::unique_ptr<SHA256> startSHA256() override;
};

}  // namespace installer
