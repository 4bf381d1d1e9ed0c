#include "TestAuthority.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <utility>

namespace lab {

namespace {

// File names of the leaves, by LeafKind.
constexpr std::array<const char*, 5> kLeafFiles{"leaf", "leaf-expired", "leaf-not-yet-valid",
                                                "leaf-wrong-team", "self-signed"};

struct Extension {
  int number;
  const char* value;
};

struct CertificatePlan {
  std::string commonName;
  std::string team;  // empty: no organizational unit
  const char* notBefore = "20200101000000Z";
  const char* notAfter = "20491231235959Z";
  std::vector<Extension> extensions;
  const char* vendorExtension = nullptr;
  bool isVendorExtensionCritical = false;
};

Outcome<KeyPointer> makeKey() {
  EVP_PKEY* key = EVP_RSA_gen(2048);
  if (key == nullptr) return refuse("can't make a key");
  return own(key);
}

void addName(X509_NAME* name, const char* field, const std::string& value) {
  X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0);
}

void addExtensions(X509* certificate, X509* issuer, const CertificatePlan& plan) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  for (const auto& [number, value] : plan.extensions) {
    const ExtensionPointer extension(X509V3_EXT_conf_nid(nullptr, &context, number, value));
    X509_add_ext(certificate, extension.get(), -1);
  }
  if (plan.vendorExtension == nullptr) return;
  const ObjectPointer object(OBJ_txt2obj(plan.vendorExtension, 1));
  constexpr std::array<unsigned char, 2> derNull{0x05, 0x00};
  ASN1_OCTET_STRING* value = ASN1_OCTET_STRING_new();
  ASN1_OCTET_STRING_set(value, derNull.data(), static_cast<int>(derNull.size()));
  const ExtensionPointer extension(
      X509_EXTENSION_create_by_OBJ(nullptr, object.get(), plan.isVendorExtensionCritical ? 1 : 0, value));
  ASN1_OCTET_STRING_free(value);
  X509_add_ext(certificate, extension.get(), -1);
}

void setRandomSerial(X509* certificate) {
  std::uint64_t serial = 0;
  RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof(serial));
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1U);
}

// A certificate for `key`, signed by `issuer`, or self-signed without one.
Outcome<X509Pointer> issue(const CertificatePlan& plan, const KeyPointer& key,
                           const KeyedCertificate* issuer) {
  X509Pointer certificate = own(X509_new());
  X509_set_version(certificate.get(), X509_VERSION_3);
  setRandomSerial(certificate.get());
  ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate.get()), plan.notBefore);
  ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate.get()), plan.notAfter);
  X509_NAME* name = X509_get_subject_name(certificate.get());
  addName(name, "CN", plan.commonName);
  if (!plan.team.empty()) addName(name, "OU", plan.team);
  addName(name, "O", "Test authority, not for release");
  X509* signer = issuer == nullptr ? certificate.get() : issuer->certificate.get();
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(signer));
  X509_set_pubkey(certificate.get(), key.get());
  addExtensions(certificate.get(), signer, plan);
  const KeyPointer& signingKey = issuer == nullptr ? key : issuer->key;
  if (X509_sign(certificate.get(), signingKey.get(), EVP_sha256()) == 0)
    return refuse("can't sign a certificate");
  return certificate;
}

CertificatePlan leafPlan(const std::string& name, const std::string& team) {
  CertificatePlan plan;
  plan.commonName = "Developer ID Application: " + name + " (" + team + ")";
  plan.team = team;
  plan.extensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                     {NID_key_usage, "critical,digitalSignature"},
                     {NID_ext_key_usage, "critical,codeSigning"}};
  plan.vendorExtension = kDeveloperIDLeaf;
  plan.isVendorExtensionCritical = true;
  return plan;
}

CertificatePlan authorityPlan(const std::string& commonName) {
  CertificatePlan plan;
  plan.commonName = commonName;
  plan.extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                     {NID_key_usage, "critical,keyCertSign,cRLSign"},
                     {NID_subject_key_identifier, "hash"}};
  return plan;
}

using FilePointer = std::unique_ptr<std::FILE, FreeBy<std::fclose>>;

Outcome<FilePointer> openFile(const std::filesystem::path& path, const char* mode) {
  FilePointer file(std::fopen(path.c_str(), mode));
  if (!file) return std::unexpected(Failure{"can't open " + path.string(), FailureKind::unreadable});
  return file;
}

Outcome<void> writeKey(const std::filesystem::path& path, const KeyPointer& key) {
  auto file = openFile(path, "w");
  if (!file) return handOn(file);
  if (PEM_write_PrivateKey(file->get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
    return refuse("can't write {}", path.string());
  std::error_code error;
  std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                               error);
  return {};
}

Outcome<X509Pointer> readCertificate(const std::filesystem::path& path) {
  auto file = openFile(path, "r");
  if (!file) return handOn(file);
  X509* certificate = PEM_read_X509(file->get(), nullptr, nullptr, nullptr);
  if (certificate == nullptr) return refuse("{} holds no certificate", path.string());
  return own(certificate);
}

Outcome<KeyPointer> readKey(const std::filesystem::path& path) {
  auto file = openFile(path, "r");
  if (!file) return handOn(file);
  EVP_PKEY* key = PEM_read_PrivateKey(file->get(), nullptr, nullptr, nullptr);
  if (key == nullptr) return refuse("{} holds no key", path.string());
  return own(key);
}

// Makes the authority's parts in order; stops at the first failure.
class AuthorityMaker {
 public:
  AuthorityMaker(std::filesystem::path folder, std::string team, std::string name)
      : folder_(std::move(folder)), team_(std::move(team)), name_(std::move(name)) {}

  Outcome<void> run() {
    KeyedCertificate root;
    KeyedCertificate intermediate;
    CertificatePlan intermediatePlan = authorityPlan(name_ + " Developer ID Certification Authority");
    intermediatePlan.vendorExtension = kDeveloperIDIntermediate;
    CertificatePlan timestampPlan;
    timestampPlan.commonName = name_ + " Timestamp Signer";
    timestampPlan.extensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                                {NID_key_usage, "critical,digitalSignature"},
                                {NID_ext_key_usage, "critical,timeStamping"}};
    if (auto made = add("root", authorityPlan(name_ + " Root"), nullptr, root); !made) return handOn(made);
    if (auto made = add("intermediate", intermediatePlan, &root, intermediate); !made) return handOn(made);
    KeyedCertificate timestamper;
    if (auto made = add("timestamp", timestampPlan, &intermediate, timestamper); !made) return handOn(made);
    return addLeaves(intermediate);
  }

 private:
  Outcome<void> add(const char* file, const CertificatePlan& plan, const KeyedCertificate* issuer,
                    KeyedCertificate& made) {
    if (made.key == nullptr) {
      auto key = makeKey();
      if (!key) return handOn(key);
      made.key = *key;
      if (auto written = writeKey(folder_ / (std::string(file) + ".key"), made.key); !written)
        return handOn(written);
    }
    auto certificate = issue(plan, made.key, issuer);
    if (!certificate) return handOn(certificate);
    made.certificate = *certificate;
    return writeCertificate(folder_ / (std::string(file) + ".pem"), made.certificate);
  }

  // All leaves share one key.
  Outcome<void> addLeaves(const KeyedCertificate& intermediate) {
    std::array<CertificatePlan, kLeafFiles.size()> plans;
    plans.fill(leafPlan(name_, team_));
    auto& expired = plans[static_cast<std::size_t>(LeafKind::expired)];
    expired.notBefore = "20210101000000Z";
    expired.notAfter = "20211231235959Z";
    plans[static_cast<std::size_t>(LeafKind::notYetValid)].notBefore = "20480101000000Z";
    plans[static_cast<std::size_t>(LeafKind::wrongTeam)] = leafPlan(name_, kWrongTeam);
    KeyedCertificate leaf;
    for (std::size_t i = 0; i < plans.size(); ++i) {
      const bool isSelfSigned = i == static_cast<std::size_t>(LeafKind::selfSigned);
      if (auto made = add(kLeafFiles[i], plans[i], isSelfSigned ? nullptr : &intermediate, leaf); !made)
        return made;
    }
    return {};
  }

  std::filesystem::path folder_;
  std::string team_;
  std::string name_;
};

}  // namespace

Outcome<void> writeCertificate(const std::filesystem::path& path, const X509Pointer& certificate) {
  auto file = openFile(path, "w");
  if (!file) return handOn(file);
  if (PEM_write_X509(file->get(), certificate.get()) != 1) return refuse("can't write {}", path.string());
  return {};
}

Outcome<void> TestAuthority::make(const std::filesystem::path& folder, const std::string& team,
                                  const std::string& name) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error)
    return std::unexpected(
        Failure{"can't make " + folder.string() + ": " + error.message(), FailureKind::unreadable});
  return AuthorityMaker(folder, team, name).run();
}

Outcome<TestAuthority> TestAuthority::load(const std::filesystem::path& folder) {
  TestAuthority authority;
  const std::array<std::pair<const char*, X509Pointer*>, 3> certificates{
      {{"root.pem", &authority.root_},
       {"intermediate.pem", &authority.intermediate_},
       {"timestamp.pem", &authority.timestamper_.certificate}}};
  for (const auto& [name, place] : certificates) {
    auto read = readCertificate(folder / name);
    if (!read) return handOn(read);
    *place = *read;
  }
  for (const char* name : kLeafFiles) {
    auto read = readCertificate(folder / (std::string(name) + ".pem"));
    if (!read) return handOn(read);
    authority.leaves_.push_back(*read);
  }
  auto leafKey = readKey(folder / "leaf.key");
  if (!leafKey) return handOn(leafKey);
  authority.leafKey_ = *leafKey;
  auto timestampKey = readKey(folder / "timestamp.key");
  if (!timestampKey) return handOn(timestampKey);
  authority.timestamper_.key = *timestampKey;
  return authority;
}

KeyedCertificate TestAuthority::leaf(LeafKind kind) const {
  return {leaves_[static_cast<std::size_t>(kind)], leafKey_};
}

std::vector<X509Pointer> TestAuthority::issuers(LeafKind kind) const {
  if (kind == LeafKind::selfSigned) return {};
  return {intermediate_, root_};
}

}  // namespace lab
