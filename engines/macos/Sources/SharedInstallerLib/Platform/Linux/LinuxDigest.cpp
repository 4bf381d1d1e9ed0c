#include <cstdio>
#include <cstdlib>
#include <fmt/core.h>
#include <openssl/evp.h>

#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

// A digest that can't be computed must not end as one that can be compared: there is no way on from there.
void require(bool done) {
  if (done) return;
  fmt::print(stderr, "engine-cli: the crypto library can't compute SHA-256\n");
  std::abort();
}

class LinuxSHA256 : public SHA256 {
 public:
  LinuxSHA256() {
    require(context_ != nullptr && EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1);
  }

  void update(std::string_view bytes) override {
    require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
  }

  std::array<std::uint8_t, 32> finish() override {
    std::array<std::uint8_t, 32> digest{};
    require(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1);
    return digest;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_{EVP_MD_CTX_new(), &EVP_MD_CTX_free};
};

}  // namespace

std::unique_ptr<SHA256> LinuxDigest::startSHA256() {
  return std::make_unique<LinuxSHA256>();
}

}  // namespace installer
