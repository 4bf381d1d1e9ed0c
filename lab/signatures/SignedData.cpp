#include "SignedData.h"

#include <algorithm>
#include <array>
#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>

namespace lab {

namespace {

constexpr std::size_t kMostCertificates = 32;

bool isSequence(const BERElement* element) {
  return element != nullptr && element->is(kBERSequence);
}

// The object identifier in an AlgorithmIdentifier.
std::string algorithmOf(const BERElement* element) {
  return isSequence(element) ? objectIdentifierOf(element->child(0)) : std::string();
}

Outcome<SignedData::Attributes> readAttributes(const BERElement& set) {
  SignedData::Attributes attributes;
  for (const BERElement& attribute : set.children) {
    const std::string type = isSequence(&attribute) ? objectIdentifierOf(attribute.child(0)) : std::string();
    const BERElement* values = attribute.child(1);
    if (type.empty() || values == nullptr || !values->is(kBERSet))
      return refuse("a signed data attribute is malformed");
    if (!attributes.emplace(type, values->children).second)
      return refuse("signed data has attribute {} twice", type);
  }
  return attributes;
}

// Reads the parts of a SignedData, in their order.
class SignedDataReader {
 public:
  SignedDataReader(const BERElement& root, std::span<const Certificate> others)
      : root_(&root), others_(others) {}

  Outcome<SignedData> read() {
    const BERElement* wrapper = root_->child(1);
    if (!isSequence(root_) || objectIdentifierOf(root_->child(0)) != kSignedDataType || wrapper == nullptr ||
        !wrapper->isContext(0) || !isSequence(wrapper->child(0))) {
      return refuse("signature isn't CMS signed data");
    }
    const BERElement& body = *wrapper->child(0);
    if (auto step = readContent(body.child(2)); !step) return handOn(step);
    const BERElement* signers = nullptr;
    for (std::size_t i = 3; i < body.children.size(); ++i) {
      const BERElement& part = body.children[i];
      if (part.isContext(0)) {
        if (auto step = readCertificates(part); !step) return handOn(step);
      }
      if (part.is(kBERSet)) signers = &part;
    }
    if (signers == nullptr || signers->children.size() != 1)
      return refuse("signed data must have exactly one signer");
    if (auto step = readSigner(signers->children.front()); !step) return handOn(step);
    return std::move(data_);
  }

 private:
  Outcome<void> readContent(const BERElement* encapsulated) {
    if (!isSequence(encapsulated)) return refuse("signed data has no content type");
    data_.contentType = objectIdentifierOf(encapsulated->child(0));
    const BERElement* wrapper = encapsulated->child(1);
    if (wrapper == nullptr) return {};
    const BERElement* content = wrapper->child(0);
    if (!wrapper->isContext(0) || content == nullptr || !content->is(kBEROctetString))
      return refuse("signed data's content is malformed");
    data_.content = octetsOf(*content);
    if (!data_.content) return refuse("signed data's content is malformed");
    return {};
  }

  Outcome<void> readCertificates(const BERElement& set) {
    if (set.children.size() > kMostCertificates) return refuse("signed data has too many certificates");
    for (const BERElement& element : set.children) {
      if (!isSequence(&element)) continue;  // the other kinds of certificate aren't X.509
      auto certificate = Certificate::readDER(element.raw);
      if (!certificate) return handOn(certificate);
      data_.certificates.push_back(*certificate);
    }
    return {};
  }

  Outcome<void> readSigner(const BERElement& signer) {
    if (!isSequence(&signer) || signer.children.size() < 5) return refuse("signer information is malformed");
    if (auto step = findCertificate(signer.children[1]); !step) return handOn(step);
    const auto digest = digestTypeOf(algorithmOf(signer.child(2)));
    if (!digest) return refuse("signer uses an unsupported digest");
    data_.digestType = *digest;
    std::size_t at = 3;
    if (signer.children[at].isContext(0)) {
      if (auto step = readSignedAttributes(signer.children[at++]); !step) return handOn(step);
    }
    data_.signatureAlgorithm = algorithmOf(signer.child(at));
    const BERElement* signature = signer.child(at + 1);
    if (signature == nullptr || !signature->is(kBEROctetString))
      return refuse("signer information has no signature");
    data_.signature = octetsOf(*signature).value_or(Bytes());
    const BERElement* rest = signer.child(at + 2);
    if (rest == nullptr) return {};
    if (!rest->isContext(1)) return refuse("signer information is malformed");
    auto unsignedAttributes = readAttributes(*rest);
    if (!unsignedAttributes) return handOn(unsignedAttributes);
    data_.unsignedAttributes = std::move(*unsignedAttributes);
    return {};
  }

  Outcome<void> readSignedAttributes(const BERElement& attributes) {
    if (attributes.indefinite) return refuse("signer information is malformed");
    auto read = readAttributes(attributes);
    if (!read) return handOn(read);
    data_.signedAttributes = std::move(*read);
    // The SET was signed; the message has an implicit tag in place of the SET's. The bytes after the tag are
    // used unchanged, because real signatures have unsorted sets.
    data_.signedBytes = copyOf(attributes.raw);
    data_.signedBytes[0] = 0x31;
    return {};
  }

  Outcome<void> findCertificate(const BERElement& identifier) {
    const auto isNamed = [&](const Certificate& certificate) {
      if (identifier.isContext(0)) return certificate.hasSubjectKeyIdentifier(identifier.content);
      if (!isSequence(&identifier) || identifier.children.size() != 2) return false;
      return certificate.isNamedBy(identifier.children[0].raw, identifier.children[1].raw);
    };
    for (const auto& pool : {std::span<const Certificate>(data_.certificates), others_}) {
      const auto found = std::ranges::find_if(pool, isNamed);
      if (found == pool.end()) continue;
      data_.signer = *found;
      return {};
    }
    return refuse("the signer's certificate isn't included");
  }

  const BERElement* root_;
  std::span<const Certificate> others_;
  SignedData data_;
};

// True when the signature algorithm matches the digest.
bool algorithmFits(const std::string& algorithm, HashType digest) {
  struct Pair {
    const char* algorithm;
    HashType digest;
  };
  static constexpr std::array<Pair, 8> kPairs{{{"1.2.840.113549.1.1.5", HashType::sha1},
                                               {"1.2.840.113549.1.1.11", HashType::sha256},
                                               {"1.2.840.113549.1.1.12", HashType::sha384},
                                               {"1.2.840.113549.1.1.13", HashType::sha512},
                                               {"1.2.840.10045.4.1", HashType::sha1},
                                               {"1.2.840.10045.4.3.2", HashType::sha256},
                                               {"1.2.840.10045.4.3.3", HashType::sha384},
                                               {"1.2.840.10045.4.3.4", HashType::sha512}}};
  if (algorithm == "1.2.840.113549.1.1.1" || algorithm == "1.2.840.10045.2.1") return true;  // the key's own
  return std::ranges::any_of(
      kPairs, [&](const Pair& pair) { return pair.algorithm == algorithm && pair.digest == digest; });
}

// Checks the content type and the message digest in the signed attributes.
Outcome<void> checkSignedAttributes(const SignedData& data, ByteView content) {
  if (objectIdentifierOf(data.signedValue(kContentTypeAttribute)) != data.contentType)
    return refuse("signature has the wrong content type");
  const BERElement* stored = data.signedValue(kMessageDigestAttribute);
  if (stored == nullptr || !stored->is(kBEROctetString)) return refuse("signature has no message digest");
  const Digest digest = digestOf(data.digestType, content);
  if (!equal(octetsOf(*stored).value_or(Bytes()), digest.bytes()))
    return refuse("signature is for other content (message digest differs)");
  return {};
}

}  // namespace

const BERElement* SignedData::signedValue(const std::string& attribute) const {
  const auto found = signedAttributes.find(attribute);
  if (found == signedAttributes.end() || found->second.size() != 1) return nullptr;
  return &found->second.front();
}

Outcome<SignedData> readSignedData(ByteView cms, std::span<const Certificate> others) {
  const auto root = readBER(cms);
  if (!root) return handOn(root);
  if (!allZero(cms.subspan(root->raw.size()))) return refuse("signed data has bytes after its end");
  return SignedDataReader(*root, others).read();
}

Outcome<void> checkSignature(const SignedData& data, ByteView content, const std::string& contentType) {
  if (data.contentType != contentType) return refuse("signature has the wrong content type");
  const bool signsContent = data.signedBytes.empty() && contentType == kDataType;
  if (!signsContent) {
    if (auto holds = checkSignedAttributes(data, content); !holds) return handOn(holds);
  }
  if (!algorithmFits(data.signatureAlgorithm, data.digestType))
    return refuse("signature algorithm {} isn't supported", data.signatureAlgorithm);
  EVP_PKEY* key = X509_get0_pubkey(data.signer->handle());
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  if (key == nullptr ||
      EVP_DigestVerifyInit(context.get(), nullptr, functionOf(data.digestType), nullptr, key) != 1) {
    return refuse("the signer's key can't be used");
  }
  const ByteView bytes = signsContent ? content : ByteView(data.signedBytes);
  const int verdict = EVP_DigestVerify(context.get(), data.signature.data(), data.signature.size(),
                                       bytes.data(), bytes.size());
  if (verdict != 1) return refuse("the signer's signature is invalid");
  return {};
}

std::optional<HashType> digestTypeOf(const std::string& objectIdentifier) {
  if (objectIdentifier == "1.3.14.3.2.26") return HashType::sha1;
  if (objectIdentifier == "2.16.840.1.101.3.4.2.1") return HashType::sha256;
  if (objectIdentifier == "2.16.840.1.101.3.4.2.2") return HashType::sha384;
  if (objectIdentifier == "2.16.840.1.101.3.4.2.3") return HashType::sha512;
  return std::nullopt;
}

}  // namespace lab
