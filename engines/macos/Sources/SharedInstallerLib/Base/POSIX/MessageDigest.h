// Incremental message digests by OpenSSL. One thread at a time. Not used on macOS.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <openssl/evp.h>
#include <string_view>

namespace installer {

using SHA256Bytes = std::array<std::uint8_t, 32>;

class MessageDigest {
 public:
  explicit MessageDigest(const EVP_MD* function = EVP_sha256()) {
    require(context_ != nullptr && EVP_DigestInit_ex(context_.get(), function, nullptr) == 1);
  }

  void update(std::string_view bytes) {
    require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
  }

  // The digest of all bytes since the start or the last call; `Bytes` is as long as the digest or longer.
  template <class Bytes = SHA256Bytes>
  Bytes finish() {
    Bytes digest{};
    require(digest.size() >= static_cast<std::size_t>(EVP_MD_CTX_get_size(context_.get())) &&
            EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1 &&
            EVP_DigestInit_ex(context_.get(), nullptr, nullptr) == 1);
    return digest;
  }

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context_{EVP_MD_CTX_new()};

  // Ends the process on a failure: a wrong digest must not be compared.
  static void require(bool done) {
    if (done) return;
    std::fputs("The crypto library can't compute a digest\n", stderr);
    std::abort();
  }
};

}  // namespace installer
