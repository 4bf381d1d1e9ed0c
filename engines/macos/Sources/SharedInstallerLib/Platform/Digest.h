// Incremental SHA-256. Any thread; one thread at a time uses a digest.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

namespace installer {

class SHA256 {
 public:
  virtual ~SHA256() = default;
  virtual void update(std::string_view bytes) = 0;
  // Ends the digest; `update` must not be called afterwards.
  virtual std::array<std::uint8_t, 32> finish() = 0;
};

class Digest {
 public:
  virtual ~Digest() = default;
  virtual std::unique_ptr<SHA256> startSHA256() = 0;
};

}  // namespace installer
