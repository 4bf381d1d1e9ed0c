// A CMS SignedData with exactly one signer, as in code signatures and their timestamps. Some values are views
// into the bytes that were read; the caller keeps those alive.
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
  std::optional<Certificate> signer;  // always present in a result of readSignedData()
  HashType digestType = HashType::sha256;
  std::string signatureAlgorithm;
  // The unchanged bytes of the signed attributes, with the tag of their signing. Empty when there are none;
  // then the signature is over the content itself.
  Bytes signedBytes;
  Attributes signedAttributes;
  Attributes unsignedAttributes;
  Bytes signature;

  // The only value of a signed attribute; null when it is absent or has more values.
  const BERElement* signedValue(const std::string& attribute) const;
};

// `others` are certificates from outside the message, which may include the signer's.
Outcome<SignedData> readSignedData(ByteView cms, std::span<const Certificate> others = {});

// Proves that the signer's key signed `content` as content of that type: content type, message digest, and
// the signature over the signed attributes' own bytes. Only plain data may be signed without attributes.
// Doesn't check the owner of the key.
Outcome<void> checkSignature(const SignedData& data, ByteView content, const std::string& contentType);

// The digest of an algorithm's object identifier; absent for an unsupported one.
std::optional<HashType> digestTypeOf(const std::string& objectIdentifier);

}  // namespace lab
