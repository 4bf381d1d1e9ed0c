#include "CMSWriter.h"

#include <string>

#include "DER.h"
#include "SignedData.h"
#include "TimestampServer.h"

namespace lab {

namespace {

constexpr const char* kTimestampPolicy = "1.2.840.113635.100.9.999";

const char* digestIdentifier(HashType type) {
  switch (type) {
    case HashType::sha1: return "1.3.14.3.2.26";
    case HashType::sha384: return "2.16.840.1.101.3.4.2.2";
    default: return "2.16.840.1.101.3.4.2.1";
  }
}

std::string hashPlist(std::span<const CodeDirectory> directories) {
  std::string entries;
  for (const CodeDirectory& directory : directories)
    entries += "\t\t<data>" + base64(directory.cdhash()) + "</data>\n";
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\">\n<dict>\n\t<key>cdhashes</key>\n\t<array>\n" +
         entries + "\t</array>\n</dict>\n</plist>\n";
}

void addHashAttributes(CMS_SignerInfo* signer, std::span<const CodeDirectory> directories) {
  const std::string plist = hashPlist(directories);
  const ObjectPointer plistType(OBJ_txt2obj(kHashPlistAttribute, 1));
  CMS_signed_add1_attr_by_OBJ(signer, plistType.get(), V_ASN1_OCTET_STRING, plist.data(),
                              static_cast<int>(plist.size()));
  const ObjectPointer setType(OBJ_txt2obj(kHashSetAttribute, 1));
  const AttributePointer set(X509_ATTRIBUTE_new());
  X509_ATTRIBUTE_set1_object(set.get(), setType.get());
  for (const CodeDirectory& directory : directories) {
    const Digest hash = directory.fullHash();
    const Bytes entry = derSequence(
        {derObjectIdentifier(digestIdentifier(directory.hashType())), derElement(0x04, hash.bytes())});
    X509_ATTRIBUTE_set1_data(set.get(), V_ASN1_SEQUENCE, entry.data(), static_cast<int>(entry.size()));
  }
  CMS_signed_add1_attr(signer, set.get());
}

void addSigningTime(CMS_SignerInfo* signer, std::chrono::sys_seconds time) {
  const TimePointer value(ASN1_TIME_set(nullptr, std::chrono::system_clock::to_time_t(time)));
  CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, ASN1_STRING_type(value.get()), value.get(), -1);
}

// A message with one signer, not yet finished with its content.
struct OpenMessage {
  CMSPointer message;
  CMS_SignerInfo* signer = nullptr;  // owned by the message
};

Outcome<OpenMessage> openMessage(const KeyedCertificate& signer, const std::vector<X509Pointer>& issuers,
                                 unsigned flags) {
  OpenMessage open{CMSPointer(CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_BINARY | flags)),
                   nullptr};
  if (!open.message) return refuse("can't make a CMS message");
  open.signer = CMS_add1_signer(open.message.get(), signer.certificate.get(), signer.key.get(), EVP_sha256(),
                                CMS_PARTIAL | CMS_NOSMIMECAP);
  if (open.signer == nullptr) return refuse("can't add a signer to a CMS message");
  for (const X509Pointer& issuer : issuers) CMS_add1_cert(open.message.get(), issuer.get());
  return open;
}

Outcome<void> finish(const OpenMessage& open, ByteView content, unsigned flags) {
  const BIOPointer source(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  if (CMS_final(open.message.get(), source.get(), nullptr, CMS_BINARY | flags) != 1)
    return refuse("can't sign a CMS message");
  return {};
}

Outcome<Bytes> timestampToken(ByteView signature, const SigningIdentity& identity,
                              std::chrono::sys_seconds time) {
  const Bytes algorithm =
      derSequence({derObjectIdentifier(digestIdentifier(HashType::sha256)), derElement(0x05, {})});
  const Digest imprint = digestOf(HashType::sha256, signature);
  const Bytes one{1};
  const Bytes info = derSequence({derElement(0x02, one), derObjectIdentifier(kTimestampPolicy),
                                  derSequence({algorithm, derElement(0x04, imprint.bytes())}),
                                  derElement(0x02, one), derGeneralizedTime(time)});
  auto open = openMessage(identity.timestamper(), identity.issuers(), 0);
  if (!open) return handOn(open);
  const ObjectPointer type(OBJ_txt2obj(kTimestampInfoType, 1));
  CMS_set1_eContentType(open->message.get(), type.get());
  CMS_set_detached(open->message.get(), 0);
  addSigningTime(open->signer, time);
  if (auto done = finish(*open, info, 0); !done) return handOn(done);
  return derOf(open->message.get());
}

Outcome<void> addTimestamp(CMS_SignerInfo* signer, const SigningIdentity& identity,
                           const SigningOptions& options) {
  const ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(signer);
  const ByteView octets{ASN1_STRING_get0_data(signature),
                        static_cast<std::size_t>(ASN1_STRING_length(signature))};
  const auto token = options.timestampURL.empty() ? timestampToken(octets, identity, options.time)
                                                  : timestampFrom(options.timestampURL, octets);
  if (!token) return handOn(token);
  const ObjectPointer type(OBJ_txt2obj(kTimestampAttribute, 1));
  CMS_unsigned_add1_attr_by_OBJ(signer, type.get(), V_ASN1_SEQUENCE, token->data(),
                                static_cast<int>(token->size()));
  return {};
}

}  // namespace

Outcome<Bytes> signDirectories(std::span<const CodeDirectory> directories, const SigningIdentity& identity,
                               const SigningOptions& options) {
  const auto open = openMessage(identity.leaf(), identity.issuers(), CMS_DETACHED);
  if (!open) return handOn(open);
  addSigningTime(open->signer, options.time);
  addHashAttributes(open->signer, directories);
  if (auto done = finish(*open, directories.front().blob(), CMS_DETACHED); !done) return handOn(done);
  // Only the test authority has a timestamping leaf, and none for its self-signed leaf.
  const bool stampsItself =
      options.stamped && identity.timestamper().key && identity.kind() != LeafKind::selfSigned;
  if (stampsItself || !options.timestampURL.empty()) {
    if (auto stamped = addTimestamp(open->signer, identity, options); !stamped) return handOn(stamped);
  }
  return derOf(open->message.get());
}

}  // namespace lab
