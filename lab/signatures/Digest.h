// The hash functions that code signatures use, over OpenSSL.
// A Hasher belongs to one thread at a time and is reused from message to message.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string_view>

#include "Bytes.h"

struct evp_md_ctx_st;
struct evp_md_st;

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

class Hasher {
 public:
  explicit Hasher(HashType type);
  Hasher(Hasher&&) noexcept;
  Hasher& operator=(Hasher&&) noexcept;
  ~Hasher();

  void update(ByteView bytes);
  Digest finish();  // and begins anew

  Digest of(ByteView bytes) {
    update(bytes);
    return finish();
  }

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const;
  };
  HashType type_;
  std::unique_ptr<evp_md_ctx_st, Free> context_;
};

// Bytes of one digest of this type: 20, 32, 20, 48, 64.
std::size_t digestSize(HashType type);

// The type that a number in a CodeDirectory names; absent for a number nobody knows.
std::optional<HashType> hashTypeOf(std::uint8_t number);

std::string_view nameOf(HashType type);

// OpenSSL's object for the (untruncated) hash function; owned by this module.
const evp_md_st* functionOf(HashType type);

Digest digestOf(HashType type, ByteView bytes);

}  // namespace lab
