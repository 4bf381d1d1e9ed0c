#include "Certificate.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fmt/chrono.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "Digest.h"
#include "MappedFile.h"

namespace lab {

namespace {

template <auto function>
struct FreeWith {
  template <class T>
  void operator()(T* object) const {
    function(object);
  }
};

using ObjectPointer = std::unique_ptr<ASN1_OBJECT, FreeWith<ASN1_OBJECT_free>>;

ObjectPointer objectFor(const std::string& objectIdentifier) {
  return ObjectPointer(OBJ_txt2obj(objectIdentifier.c_str(), 1));
}

std::string textOfValue(const ASN1_STRING* value) {
  unsigned char* utf8 = nullptr;
  const int length = ASN1_STRING_to_UTF8(&utf8, value);
  if (length < 0) return {};
  std::string text(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(length));
  OPENSSL_free(utf8);
  return text;
}

std::chrono::sys_seconds timeOfASN1(const ASN1_TIME* time) {
  std::tm kFields{};
  if (ASN1_TIME_to_tm(time, &kFields) != 1) return {};
  return std::chrono::sys_seconds(std::chrono::seconds(::timegm(&kFields)));
}

int fieldNumber(std::string_view field) {
  struct Field {
    std::string_view name;
    int number;
  };
  static constexpr std::array<Field, 9> kFields{{{"CN", NID_commonName},
                                                 {"C", NID_countryName},
                                                 {"D", NID_description},
                                                 {"L", NID_localityName},
                                                 {"O", NID_organizationName},
                                                 {"OU", NID_organizationalUnitName},
                                                 {"ST", NID_stateOrProvinceName},
                                                 {"STREET", NID_streetAddress},
                                                 {"UID", NID_userId}}};
  const auto* found = std::ranges::find(kFields, field, &Field::name);
  return found == kFields.end() ? NID_undef : found->number;
}

}  // namespace

Certificate::Certificate(Bytes der, std::shared_ptr<x509_st> handle)
    : der_(std::make_shared<const Bytes>(std::move(der))), handle_(std::move(handle)) {
}

Outcome<Certificate> Certificate::readDER(ByteView der) {
  const unsigned char* at = der.data();
  X509* parsed = d2i_X509(nullptr, &at, static_cast<long>(der.size()));
  if (parsed == nullptr) return refuse("a certificate is malformed");
  const std::shared_ptr<x509_st> handle(parsed, X509_free);
  if (at != der.data() + der.size()) return refuse("a certificate has bytes after its end");
  return Certificate(copyOf(der), handle);
}

Outcome<Certificate> Certificate::readFile(const std::filesystem::path& path) {
  auto file = MappedFile::open(path, Links::follow);
  if (!file) return handOn(file);
  if (auto direct = readDER(file->bytes())) return direct;
  const std::unique_ptr<BIO, FreeWith<BIO_free_all>> source(
      BIO_new_mem_buf(file->bytes().data(), static_cast<int>(file->bytes().size())));
  const std::unique_ptr<X509, FreeWith<X509_free>> parsed(
      PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr));
  if (!parsed) return refuse("{} holds no certificate", path.string());
  unsigned char* encoded = nullptr;
  const int length = i2d_X509(parsed.get(), &encoded);
  if (length <= 0) return refuse("{} holds no certificate", path.string());
  const Bytes der(encoded, encoded + length);
  OPENSSL_free(encoded);
  return readDER(der);
}

Bytes Certificate::sha1() const {
  return copyOf(digestOf(HashType::sha1, *der_).bytes());
}

Bytes Certificate::sha256() const {
  return copyOf(digestOf(HashType::sha256, *der_).bytes());
}

std::vector<std::string> Certificate::subject(std::string_view field) const {
  const int number = fieldNumber(field);
  std::vector<std::string> values;
  if (number == NID_undef) return values;
  const X509_NAME* name = X509_get_subject_name(handle_.get());
  for (int at = X509_NAME_get_index_by_NID(name, number, -1); at >= 0;
       at = X509_NAME_get_index_by_NID(name, number, at)) {
    values.push_back(textOfValue(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at))));
  }
  return values;
}

std::string Certificate::displayName() const {
  const auto names = subject("CN");
  if (!names.empty()) return printable(names.front());
  std::array<char, 256> line{};
  X509_NAME_oneline(X509_get_subject_name(handle_.get()), line.data(), static_cast<int>(line.size()));
  return printable(line.data());
}

bool Certificate::hasExtension(const std::string& objectIdentifier) const {
  const ObjectPointer object = objectFor(objectIdentifier);
  return object && X509_get_ext_by_OBJ(handle_.get(), object.get(), -1) >= 0;
}

bool Certificate::hasExtendedUsage(const std::string& objectIdentifier) const {
  const ObjectPointer object = objectFor(objectIdentifier);
  const std::unique_ptr<EXTENDED_KEY_USAGE, FreeWith<EXTENDED_KEY_USAGE_free>> usages(
      static_cast<EXTENDED_KEY_USAGE*>(X509_get_ext_d2i(handle_.get(), NID_ext_key_usage, nullptr, nullptr)));
  if (!object || !usages) return false;
  for (int i = 0; i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
    if (OBJ_cmp(sk_ASN1_OBJECT_value(usages.get(), i), object.get()) == 0) return true;
  }
  return false;
}

bool Certificate::allowsDigitalSignature() const {
  return (X509_get_extension_flags(handle_.get()) & EXFLAG_KUSAGE) != 0 &&
         (X509_get_key_usage(handle_.get()) & KU_DIGITAL_SIGNATURE) != 0;
}

bool Certificate::isSelfIssued() const {
  return X509_NAME_cmp(X509_get_subject_name(handle_.get()), X509_get_issuer_name(handle_.get())) == 0;
}

bool Certificate::isNamedBy(ByteView issuer, ByteView serial) const {
  const unsigned char* at = issuer.data();
  const std::unique_ptr<X509_NAME, FreeWith<X509_NAME_free>> name(
      d2i_X509_NAME(nullptr, &at, static_cast<long>(issuer.size())));
  at = serial.data();
  const std::unique_ptr<ASN1_INTEGER, FreeWith<ASN1_INTEGER_free>> number(
      d2i_ASN1_INTEGER(nullptr, &at, static_cast<long>(serial.size())));
  return name && number && X509_NAME_cmp(name.get(), X509_get_issuer_name(handle_.get())) == 0 &&
         ASN1_INTEGER_cmp(number.get(), X509_get0_serialNumber(handle_.get())) == 0;
}

bool Certificate::hasSubjectKeyIdentifier(ByteView identifier) const {
  const ASN1_OCTET_STRING* own = X509_get0_subject_key_id(handle_.get());
  if (own == nullptr) return false;
  return equal(identifier, {ASN1_STRING_get0_data(own), static_cast<std::size_t>(ASN1_STRING_length(own))});
}

std::chrono::sys_seconds Certificate::notBefore() const {
  return timeOfASN1(X509_get0_notBefore(handle_.get()));
}

std::chrono::sys_seconds Certificate::notAfter() const {
  return timeOfASN1(X509_get0_notAfter(handle_.get()));
}

std::string showTime(std::chrono::sys_seconds time) {
  return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

}  // namespace lab
