// `Digest` on CommonCrypto.
#include <CommonCrypto/CommonDigest.h>
#include <algorithm>
#include <limits>

#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinSHA256 final : public SHA256 {
 public:
  DarwinSHA256() { CC_SHA256_Init(&context_); }

  void update(std::string_view bytes) override {
    constexpr std::size_t most = std::numeric_limits<CC_LONG>::max();
    while (!bytes.empty()) {
      const std::size_t count = std::min(bytes.size(), most);
      CC_SHA256_Update(&context_, bytes.data(), static_cast<CC_LONG>(count));
      bytes.remove_prefix(count);
    }
  }

  std::array<std::uint8_t, 32> finish() override {
    std::array<std::uint8_t, CC_SHA256_DIGEST_LENGTH> digest{};
    CC_SHA256_Final(digest.data(), &context_);
    return digest;
  }

 private:
  CC_SHA256_CTX context_{};
};

class DarwinDigest final : public Digest {
 public:
  std::unique_ptr<SHA256> startSHA256() override { return std::make_unique<DarwinSHA256>(); }
};

}  // namespace

std::unique_ptr<Digest> makeDigest() {
  return std::make_unique<DarwinDigest>();
}

}  // namespace installer::darwin
