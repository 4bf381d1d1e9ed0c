// A CMS SignedData with exactly one signer, as code signatures and their timestamps use it.
// Everything is copied out of, or views into, the bytes that were read; the caller keeps those alive.
#pragma once

#include <map>
#include <span>
#include <string>
#include <vector>

#include "BER.h"
#include "Certificate.h"
#include "Digest.h"

namespace lab {

inline constexpr const char* kDataType = "1.2.840.113549.1.7.1";
inline constexpr const char* kSignedDataType = "1.2.840.113549.1.7.2";
inline constexpr const char* kContentTypeAttribute = "1.2.840.113549.1.9.3";
inline constexpr const char* kMessageDigestAttribute = "1.2.840.113549.1.9.4";
inline constexpr const char* kSigningTimeAttribute = "1.2.840.113549.1.9.5";
inline constexpr const char* kTimestampAttribute = "1.2.840.113549.1.9.16.2.14";
inline constexpr const char* kTimestampInfoType = "1.2.840.113549.1.9.16.1.4";
inline constexpr const char* kHashPlistAttribute = "1.2.840.113635.100.9.1";
inline constexpr const char* kHashSetAttribute = "1.2.840.113635.100.9.2";

struct SignedData {
  // Values of each attribute, by object identifier.
  using Attributes = std::map<std::string, std::vector<BERElement>>;

  std::string contentType;
  std::optional<Bytes> content;  // absent when the content is detached
  std::vector<Certificate> certificates;
  std::optional<Certificate> signer;  // always there in what readSignedData() gives
  HashType digestType = HashType::sha256;
  std::string signatureAlgorithm;
  // The signed attributes as they stand, under the tag they were signed with. Empty when there are none: then
  // the signature is over the content itself.
  Bytes signedBytes;
  Attributes signedAttributes;
  Attributes unsignedAttributes;
  Bytes signature;

  // The only value of a signed attribute; nothing when it is absent or has more values.
  const BERElement* signedValue(const std::string& attribute) const;
};

// `others` are certificates that stand elsewhere and may hold the signer's.
Outcome<SignedData> readSignedData(ByteView cms, std::span<const Certificate> others = {});

// Proves that the signer's key signed `content` as content of that type: content type, message digest,
// and the signature over the signed attributes' own bytes. Plain data, and nothing else, may be signed
// without attributes. Says nothing about whose key it is.
Outcome<void> checkSignature(const SignedData& data, ByteView content, const std::string& contentType);

// The digest that an algorithm's object identifier names; absent for one that isn't supported.
std::optional<HashType> digestTypeOf(const std::string& objectIdentifier);

}  // namespace lab
