#include "Digest.h"

#include <algorithm>

namespace lab {

Digest::Digest(const std::uint8_t* data, std::size_t size) : size_(std::min(size, storage_.size())) {
  std::copy_n(data, size_, storage_.begin());
}

Digest Hasher::finish() {
  const auto digest = digest_.finish<std::array<std::uint8_t, EVP_MAX_MD_SIZE>>();
  return {digest.data(), digestSize(type_)};
}

std::size_t digestSize(HashType type) {
  switch (type) {
    case HashType::sha1:
    case HashType::sha256Truncated: return 20;
    case HashType::sha256: return 32;
    case HashType::sha384: return 48;
    case HashType::sha512: return 64;
  }
  return 0;
}

std::optional<HashType> hashTypeOf(std::uint8_t number) {
  if (number < 1 || number > 4) return std::nullopt;
  return static_cast<HashType>(number);
}

std::string_view nameOf(HashType type) {
  switch (type) {
    case HashType::sha1: return "sha1";
    case HashType::sha256: return "sha256";
    case HashType::sha256Truncated: return "sha256t";
    case HashType::sha384: return "sha384";
    case HashType::sha512: return "sha512";
  }
  return "unknown";
}

const EVP_MD* functionOf(HashType type) {
  // Fetched once: an implicit fetch per page costs more than the hash, and a file has thousands of pages.
  static const EVP_MD* const sha1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);
  static const EVP_MD* const sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  static const EVP_MD* const sha384 = EVP_MD_fetch(nullptr, "SHA384", nullptr);
  static const EVP_MD* const sha512 = EVP_MD_fetch(nullptr, "SHA512", nullptr);
  switch (type) {
    case HashType::sha1: return sha1;
    case HashType::sha256:
    case HashType::sha256Truncated: return sha256;
    case HashType::sha384: return sha384;
    case HashType::sha512: return sha512;
  }
  return sha256;
}

Digest digestOf(HashType type, ByteView bytes) {
  return Hasher(type).of(bytes);
}

}  // namespace lab
