#include "Support/SimulatedDigest.h"

#include <fmt/format.h>
#include <openssl/evp.h>

namespace installer::test {

namespace {

class OpenSSLDigest : public SHA256 {
 public:
  OpenSSLDigest() : context_{EVP_MD_CTX_new(), &EVP_MD_CTX_free} {
    EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr);
  }
  void update(std::string_view bytes) override {
    EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size());
  }
  std::array<std::uint8_t, 32> finish() override {
    std::array<std::uint8_t, 32> result{};
    EVP_DigestFinal_ex(context_.get(), result.data(), nullptr);
    return result;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

}  // namespace

std::unique_ptr<SHA256> SimulatedDigest::startSHA256() {
  return std::make_unique<OpenSSLDigest>();
}

std::string sha256(std::string_view bytes) {
  OpenSSLDigest digest;
  digest.update(bytes);
  std::string text;
  for (const auto byte : digest.finish()) text += fmt::format("{:02x}", byte);
  return text;
}

}  // namespace installer::test
