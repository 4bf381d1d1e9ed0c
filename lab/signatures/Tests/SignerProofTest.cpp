#include <functional>
#include <gtest/gtest.h>
#include <openssl/pem.h>

#include "CodeSignature.h"
#include "DER.h"
#include "SignatureWriter.h"
#include "SignedData.h"
#include "SuperBlob.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

const Bytes kSignedCode(5000, 7);

template <class Object, class Encode>
Bytes encoded(const Object* object, Encode function) {
  unsigned char* der = nullptr;
  const int size = function(object, &der);
  Bytes bytes(der, der + size);
  OPENSSL_free(der);
  return bytes;
}

Bytes derSet(const std::vector<Bytes>& values) {
  Bytes content;
  for (const Bytes& value : values) content.insert(content.end(), value.begin(), value.end());
  return derElement(0x31, content);
}

Bytes attribute(const char* type, const std::vector<Bytes>& values) {
  return derSequence({derObjectIdentifier(type), derSet(values)});
}

Bytes algorithm(const char* type) {
  return derSequence({derObjectIdentifier(type), derElement(0x05, {})});
}

// Wraps content in an element of indefinite length, like the platform's encoder.
Bytes indefinite(std::uint8_t tag, const std::vector<Bytes>& parts) {
  Bytes element{tag, 0x80};
  for (const Bytes& part : parts) element.insert(element.end(), part.begin(), part.end());
  element.insert(element.end(), {0, 0});
  return element;
}

Bytes signOver(const Bytes& content, const KeyPointer& key) {
  const std::unique_ptr<EVP_MD_CTX, FreeBy<EVP_MD_CTX_free>> context(EVP_MD_CTX_new());
  Bytes signature(512);
  std::size_t size = signature.size();
  EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get());
  EVP_DigestSign(context.get(), signature.data(), &size, content.data(), content.size());
  signature.resize(size);
  return signature;
}

KeyPointer curveKey() {
  return own(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
}

// The authority's valid leaf, changed by `change`.
KeyedCertificate changedLeaf(const std::function<void(X509*)>& change) {
  const KeyedCertificate valid = testAuthority().leaf(LeafKind::valid);
  const std::string keyFile = std::string(SIGNATURE_TESTS_HOST) + "/trusting/authority/intermediate.key";
  const BIOPointer file(BIO_new_file(keyFile.c_str(), "r"));
  const KeyPointer issuer = own(PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  const X509Pointer leaf = own(X509_dup(valid.certificate.get()));
  change(leaf.get());
  X509_sign(leaf.get(), issuer.get(), EVP_sha256());
  return {own(X509_dup(leaf.get())), valid.key};
}

void removeExtension(X509* certificate, int number) {
  X509_EXTENSION_free(X509_delete_ext(certificate, X509_get_ext_by_NID(certificate, number, -1)));
}

void addExtension(X509* certificate, const char* type, bool isCritical) {
  const ObjectPointer object(OBJ_txt2obj(type, 1));
  ASN1_OCTET_STRING* value = ASN1_OCTET_STRING_new();
  ASN1_OCTET_STRING_set(value, reinterpret_cast<const unsigned char*>("\x05"), 2);
  const ExtensionPointer extension(
      X509_EXTENSION_create_by_OBJ(nullptr, object.get(), isCritical ? 1 : 0, value));
  ASN1_OCTET_STRING_free(value);
  X509_add_ext(certificate, extension.get(), -1);
}

// Two code directories and a CMS that the test encodes part by part.
class HandMade : public testing::Test {
 protected:
  HandMade() {
    SigningOptions options;
    options.digests = {HashType::sha1, HashType::sha256};
    options.time = currentTime();
    SigningSubject subject;
    subject.identifier = "test.code";
    subject.code = kSignedCode;
    blobs = makeSignature(subject, SigningIdentity(testAuthority(), LeafKind::valid), options).value();
    signer = testAuthority().leaf(LeafKind::valid);
    attributes = {attribute(kContentTypeAttribute, {derObjectIdentifier(kDataType)}),
                  attribute(kMessageDigestAttribute,
                            {derElement(0x04, digestOf(HashType::sha256, blobs.at(0)).bytes())}),
                  hashSet({0x1000, 0})};
  }

  Bytes hashEntry(std::uint32_t slot) const {
    const CodeDirectory directory = CodeDirectory::read(blobs.at(slot)).value();
    const bool isSHA1 = directory.hashType() == HashType::sha1;
    return derSequence({derObjectIdentifier(isSHA1 ? "1.3.14.3.2.26" : "2.16.840.1.101.3.4.2.1"),
                        derElement(0x04, directory.fullHash().bytes())});
  }

  Bytes hashSet(const std::vector<std::uint32_t>& slots) const {
    std::vector<Bytes> entries;
    for (const std::uint32_t slot : slots) entries.push_back(hashEntry(slot));
    return attribute(kHashSetAttribute, entries);
  }

  Bytes signerInfo() const {
    const Bytes one{1};
    Bytes content = derSet(attributes);
    const Bytes signature = signOver(attributes.empty() ? blobs.at(0) : content, signer.key);
    content[0] = 0xA0;
    if (attributes.empty()) content.clear();
    return derSequence(
        {derElement(0x02, one),
         derSequence({encoded(X509_get_issuer_name(signer.certificate.get()), i2d_X509_NAME),
                      encoded(X509_get0_serialNumber(signer.certificate.get()), i2d_ASN1_INTEGER)}),
         algorithm("2.16.840.1.101.3.4.2.1"), content, algorithm(signatureAlgorithm),
         derElement(0x04, signature)});
  }

  Bytes message() const {
    Bytes certificates = derOf(signer.certificate.get());
    for (const X509Pointer& issuer : testAuthority().issuers(LeafKind::valid)) {
      const Bytes der = derOf(issuer.get());
      certificates.insert(certificates.end(), der.begin(), der.end());
    }
    const Bytes one{1};
    std::vector<Bytes> signers(signerCount, signerInfo());
    const Bytes body = indefinite(0x30, {derElement(0x02, one), derSet({algorithm("2.16.840.1.101.3.4.2.1")}),
                                         indefinite(0x30, {derObjectIdentifier(contentType)}),
                                         indefinite(0xA0, {certificates}), derSet(signers)});
    return indefinite(0x30, {derObjectIdentifier(kSignedDataType), indefinite(0xA0, {body})});
  }

  // Empty when the signer is proven, else the reason.
  std::string judge() {
    blobs[kSignatureSlot] = message();
    return judgeBlobs();
  }

  std::string judgeBlobs() {
    const std::map<std::uint32_t, ByteView> views(blobs.begin(), blobs.end());
    const auto parts = SignatureParts::fromBlobs(views);
    if (!parts) return parts.error().reason;
    facts = readFacts(*parts, {kSignedCode, kSignedCode.size(), {}, {}}).value();
    const auto proven = proveSigner(*parts, testAnchors(), currentTime(), facts);
    return proven ? "" : proven.error().reason;
  }

  std::map<std::uint32_t, Bytes> blobs;
  KeyedCertificate signer;
  std::vector<Bytes> attributes;
  std::size_t signerCount = 1;
  const char* contentType = kDataType;
  const char* signatureAlgorithm = "1.2.840.113549.1.1.1";  // of the RSA key
  CodeFacts facts;
};

TEST_F(HandMade, IndefiniteLengthsAndAnUnsortedSetAreVerifiedAsTheyStand) {
  ASSERT_GT(hashEntry(0x1000), hashEntry(0))
      << "the set must not be in the order that an encoder would give it";
  EXPECT_EQ(judge(), "");
  attributes[2] = hashSet({0, 0x1000});
  EXPECT_EQ(judge(), "");
  EXPECT_EQ(facts.authorities.size(), 3U);
  EXPECT_FALSE(facts.timestamp);
}

TEST_F(HandMade, EveryDirectoryMustBeAmongTheSignedAttributes) {
  attributes[2] = hashSet({0});
  EXPECT_EQ(judge(), "the signer signed other code directories than are present");
  attributes[2] = hashSet({0, 0});
  EXPECT_EQ(judge(), "the signer signed other code directories than are present");
  attributes.pop_back();
  EXPECT_EQ(judge(), "the signer signed only one of several code directories");
}

TEST_F(HandMade, AnOldSignatureWithOneDirectoryAndNoListIsEnough) {
  attributes.pop_back();
  blobs.erase(0x1000);
  EXPECT_EQ(judge(), "");
}

// The form of signing tools of 2013.
TEST_F(HandMade, ASignatureWithoutAttributesIsOverTheDirectoryItself) {
  attributes.clear();
  EXPECT_EQ(judge(), "the signer signed only one of several code directories");
  blobs.erase(0x1000);
  EXPECT_EQ(judge(), "");
  EXPECT_FALSE(facts.claimedTime);
  blobs[0].back() ^= 1;
  EXPECT_EQ(judgeBlobs(), "the signer's signature is invalid");
  contentType = kTimestampInfoType;
  EXPECT_EQ(judge(), "signature has the wrong content type");
}

TEST_F(HandMade, OnlyPlainDataIsSignedWithoutAttributes) {
  attributes.clear();
  contentType = kTimestampInfoType;
  const Bytes cms = message();
  const auto data = readSignedData(cms);
  ASSERT_TRUE(data) << data.error().reason;
  const auto checked = checkSignature(*data, blobs.at(0), kTimestampInfoType);
  ASSERT_FALSE(checked);
  EXPECT_EQ(checked.error().reason, "signature has the wrong content type");
}

TEST_F(HandMade, AnAlternateDirectoryThatTheSignerDidntSignIsRefused) {
  blobs[kSignatureSlot] = message();
  Bytes& alternate = blobs[0x1000];
  alternate.back() ^= 1;
  EXPECT_EQ(judgeBlobs(), "the signer signed other code directories than are present");
}

TEST_F(HandMade, TheContentIsThePrimaryDirectory) {
  blobs[kSignatureSlot] = message();
  blobs[0].back() ^= 1;
  EXPECT_EQ(judgeBlobs(), "signature is for other content (message digest differs)");
}

TEST_F(HandMade, ExactlyOneSigner) {
  signerCount = 2;
  EXPECT_EQ(judge(), "signed data must have exactly one signer");
  signerCount = 0;
  EXPECT_EQ(judge(), "signed data must have exactly one signer");
}

TEST_F(HandMade, AnAttributeMustNotStandTwice) {
  attributes.push_back(attributes[1]);
  EXPECT_EQ(judge(), "signed data has attribute 1.2.840.113549.1.9.4 twice");
}

TEST_F(HandMade, TheContentTypeIsData) {
  attributes[0] = attribute(kContentTypeAttribute, {derObjectIdentifier(kTimestampInfoType)});
  EXPECT_EQ(judge(), "signature has the wrong content type");
}

TEST_F(HandMade, BytesBehindTheMessageAreRefusedUnlessZero) {
  blobs[kSignatureSlot] = message();
  blobs[kSignatureSlot].resize(blobs[kSignatureSlot].size() + 100);
  EXPECT_EQ(judgeBlobs(), "");
  blobs[kSignatureSlot].push_back(1);
  EXPECT_EQ(judgeBlobs(), "signed data has bytes after its end");
}

TEST_F(HandMade, ACriticalExtensionOfTheVendorsArcIsUnderstood) {
  signer = changedLeaf([](X509* leaf) { addExtension(leaf, "1.2.840.113635.100.6.1.99", true); });
  EXPECT_EQ(judge(), "");
}

TEST_F(HandMade, AnyOtherUnknownCriticalExtensionIsRefused) {
  for (const char* type : {"1.2.840.113635.100.5.1", "1.2.840.113635.100.61.1", "1.3.6.1.4.1.99999.1"}) {
    signer = changedLeaf([&](X509* leaf) { addExtension(leaf, type, true); });
    EXPECT_NE(judge(), "") << type;
    signer = changedLeaf([&](X509* leaf) { addExtension(leaf, type, false); });
    EXPECT_EQ(judge(), "") << type << " when it isn't critical";
  }
}

TEST_F(HandMade, TheLeafMustBeForCodeSigning) {
  signer = changedLeaf([](X509* leaf) { removeExtension(leaf, NID_ext_key_usage); });
  EXPECT_EQ(judge(), "the signer's certificate isn't for code signing");
  signer = changedLeaf([](X509* leaf) { removeExtension(leaf, NID_key_usage); });
  EXPECT_EQ(judge(), "the signer's certificate doesn't allow digital signatures");
}

TEST_F(HandMade, TheLeafMustNameExactlyOneTeam) {
  const auto* second = reinterpret_cast<const unsigned char*>("SECOND0000");
  signer = changedLeaf([&](X509* leaf) {
    X509_NAME_add_entry_by_txt(X509_get_subject_name(leaf), "OU", MBSTRING_ASC, second, -1, -1, 0);
  });
  EXPECT_EQ(judge(), "the signer's certificate must name exactly one team");
}

TEST_F(HandMade, ALeafThatAnotherKeySignedIsRefused) {
  signer = testAuthority().leaf(LeafKind::valid);
  signer.certificate = own(X509_dup(signer.certificate.get()));
  X509_sign(signer.certificate.get(), signer.key.get(), EVP_sha256());
  EXPECT_EQ(judge().find("the signer's certificate chain isn't trusted"), 0U);
}

TEST_F(HandMade, AdHocCodeWithASignerIsAContradiction) {
  SigningSubject subject;
  subject.identifier = "test.code";
  subject.code = kSignedCode;
  const auto adHoc = makeSignature(subject, {}, {}).value();
  blobs.erase(0x1000);
  blobs[0] = adHoc.at(0);
  EXPECT_EQ(judge(), "ad hoc code has a signer");
  blobs.erase(kSignatureSlot);
  EXPECT_EQ(judgeBlobs(), "");
}

TEST_F(HandMade, CodeWithoutASignerMustBeMarkedAsAdHoc) {
  blobs[kSignatureSlot].clear();
  EXPECT_EQ(judgeBlobs(), "signature has no signer and isn't marked as ad hoc");
  blobs.erase(kSignatureSlot);
  EXPECT_EQ(judgeBlobs(), "signature has no signer and isn't marked as ad hoc");
}

TEST_F(HandMade, ASignerMayHaveAnEllipticCurveKey) {
  const KeyPointer key = curveKey();
  signer = changedLeaf([&](X509* leaf) { X509_set_pubkey(leaf, key.get()); });
  signer.key = key;
  for (const char* fitting : {"1.2.840.10045.4.3.2", "1.2.840.10045.2.1"}) {
    signatureAlgorithm = fitting;
    EXPECT_EQ(judge(), "") << fitting;
  }
  signatureAlgorithm = "1.2.840.10045.4.3.3";
  EXPECT_EQ(judge(), "signature algorithm 1.2.840.10045.4.3.3 isn't supported") << "it goes with SHA-384";
  signatureAlgorithm = "1.2.840.10045.4.3.2";
  signer.key = curveKey();
  EXPECT_EQ(judge(), "the signer's signature is invalid");
}

TEST_F(HandMade, OnlyBelievedRootsCount) {
  blobs[kSignatureSlot] = message();
  const std::map<std::uint32_t, ByteView> views(blobs.begin(), blobs.end());
  const auto parts = SignatureParts::fromBlobs(views).value();
  facts = readFacts(parts, {kSignedCode, kSignedCode.size(), {}, {}}).value();
  const auto proven = proveSigner(parts, Anchors::platform(), currentTime(), facts);
  ASSERT_FALSE(proven);
  EXPECT_EQ(proven.error().reason, "the signer's root certificate isn't trusted");
}

}  // namespace
}  // namespace lab
