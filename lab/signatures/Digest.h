// The hash functions that code signatures use, over OpenSSL.
// A Hasher belongs to one thread at a time and is reused from message to message.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "Base/POSIX/MessageDigest.h"
#include "Bytes.h"

namespace lab {

// The numbers that a CodeDirectory gives to its hash functions.
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

// OpenSSL's object for the (untruncated) hash function; owned by this module.
const EVP_MD* functionOf(HashType type);

class Hasher {
 public:
  explicit Hasher(HashType type) : type_(type), digest_(functionOf(type)) {}

  void update(ByteView bytes) { digest_.update({reinterpret_cast<const char*>(bytes.data()), bytes.size()}); }
  Digest finish();  // and begins anew

  Digest of(ByteView bytes) {
    update(bytes);
    return finish();
  }

 private:
  HashType type_;
  installer::MessageDigest digest_;
};

// Bytes of one digest of this type: 20, 32, 20, 48, 64.
std::size_t digestSize(HashType type);

// The type that a number in a CodeDirectory names; absent for a number nobody knows.
std::optional<HashType> hashTypeOf(std::uint8_t number);

std::string_view nameOf(HashType type);

Digest digestOf(HashType type, ByteView bytes);

}  // namespace lab
