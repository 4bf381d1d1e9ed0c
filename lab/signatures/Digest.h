// The hash functions that code signatures use, over OpenSSL.
// One thread at a time uses a Hasher; it can be reused for several messages.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "Base/POSIX/MessageDigest.h"
#include "Bytes.h"

namespace lab {

// The numbers of the hash functions in a CodeDirectory.
enum class HashType : std::uint8_t { sha1 = 1, sha256 = 2, sha256Truncated = 3, sha384 = 4, sha512 = 5 };

// A digest of at most 64 bytes, without an allocation.
class Digest {
 public:
  Digest() = default;
  Digest(const std::uint8_t* data, std::size_t size);
  ByteView bytes() const { return {storage_.data(), size_}; }

 private:
  std::array<std::uint8_t, 64> storage_{};
  std::size_t size_ = 0;
};

// OpenSSL's object of the (untruncated) hash function; owned by this module.
const EVP_MD* functionOf(HashType type);

class Hasher {
 public:
  explicit Hasher(HashType type) : type_(type), digest_(functionOf(type)) {}

  void update(ByteView bytes) { digest_.update({reinterpret_cast<const char*>(bytes.data()), bytes.size()}); }
  Digest finish();  // then starts a new digest

  Digest of(ByteView bytes) {
    update(bytes);
    return finish();
  }

 private:
  HashType type_;
  installer::MessageDigest digest_;
};

// The length of a digest of this type: 20, 32, 20, 48 or 64 bytes.
std::size_t digestSize(HashType type);

// The type of a number in a CodeDirectory; absent for an unknown number.
std::optional<HashType> hashTypeOf(std::uint8_t number);

std::string_view nameOf(HashType type);

Digest digestOf(HashType type, ByteView bytes);

}  // namespace lab
