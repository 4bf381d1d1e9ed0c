// The list of digests that a code signature signs.
// A CodeDirectory has views into the bytes that it was read from; the caller keeps those alive.
#pragma once

#include <string>

#include "Bytes.h"
#include "Digest.h"
#include "Outcome.h"

namespace lab {

inline constexpr std::uint32_t kAdHocFlag = 0x2;
inline constexpr std::uint32_t kForceExpirationFlag = 0x400;
inline constexpr std::uint32_t kHardenedRuntimeFlag = 0x10000;
inline constexpr std::uint32_t kLinkerSignedFlag = 0x20000;

class CodeDirectory {
 public:
  // Refuses unknown digests, scattered code, tables outside the blob, and a page count that doesn't match the
  // limit.
  static Outcome<CodeDirectory> read(ByteView blob);

  ByteView blob() const { return blob_; }
  std::uint32_t version() const { return version_; }
  std::uint32_t flags() const { return flags_; }
  const std::string& identifier() const { return identifier_; }  // unchanged bytes, perhaps not UTF-8
  const std::string& team() const { return team_; }              // empty when there is none
  HashType hashType() const { return hashType_; }
  std::uint64_t codeLimit() const { return codeLimit_; }
  std::uint64_t pageSize() const { return pageSize_; }  // 0: the code is a single page
  std::uint32_t pageCount() const { return pageCount_; }
  std::uint32_t specialCount() const { return specialCount_; }

  // The stored digest of a page below pageCount().
  ByteView pageHash(std::uint32_t page) const;

  // The stored digest of a special slot; absent when the slot isn't covered or is all zero.
  std::optional<ByteView> specialHash(std::uint32_t slot) const;

  Digest fullHash() const;  // of the whole blob
  Bytes cdhash() const;     // its first 20 bytes

 private:
  Outcome<void> readTexts();
  Outcome<void> readTables();

  ByteView blob_;
  std::uint32_t version_ = 0;
  std::uint32_t flags_ = 0;
  std::string identifier_;
  std::string team_;
  HashType hashType_ = HashType::sha256;
  std::uint64_t codeLimit_ = 0;
  std::uint64_t pageSize_ = 0;
  std::uint32_t pageCount_ = 0;
  std::uint32_t specialCount_ = 0;
  std::uint64_t hashOffset_ = 0;
};

// "adhoc,runtime" or "none"; flags without a name in hexadecimal.
std::string flagNames(std::uint32_t flags);

}  // namespace lab
