#include "SigningIdentity.h"

#include <openssl/err.h>
#include <openssl/pkcs12.h>

#include "Certificate.h"
#include "DER.h"
#include "MappedFile.h"

namespace lab {

namespace {

using PKCS12Pointer = std::unique_ptr<PKCS12, FreeBy<PKCS12_free>>;

void freeStack(STACK_OF(X509) * certificates) {
  sk_X509_free(certificates);
}
using StackPointer = std::unique_ptr<STACK_OF(X509), FreeBy<freeStack>>;

}  // namespace

Outcome<SigningIdentity> SigningIdentity::fromPKCS12(const std::filesystem::path& file,
                                                     const std::string& password) {
  const auto content = MappedFile::open(file, Links::follow);
  if (!content) return handOn(content);
  const unsigned char* from = content->bytes().data();
  const PKCS12Pointer sealed(d2i_PKCS12(nullptr, &from, static_cast<long>(content->bytes().size())));
  if (!sealed) return refuse("{} is no PKCS#12 file", file.string());
  EVP_PKEY* key = nullptr;
  X509* leaf = nullptr;
  STACK_OF(X509)* others = nullptr;
  if (PKCS12_parse(sealed.get(), password.c_str(), &key, &leaf, &others) != 1) {
    return refuse("{} can't be opened with this password", file.string());
  }
  const StackPointer issuers(others);
  SigningIdentity identity;
  identity.leaf_ = {own(leaf), own(key)};
  for (int at = 0; at < sk_X509_num(others); ++at)
    identity.issuers_.push_back(own(sk_X509_value(others, at)));
  if (key == nullptr || leaf == nullptr) return refuse("{} holds no key with its certificate", file.string());
  return identity;
}

std::string SigningIdentity::team() const {
  if (isAdHoc()) return {};
  const auto leaf = Certificate::readDER(derOf(leaf_.certificate.get()));
  const auto units = leaf ? leaf->subject("OU") : std::vector<std::string>();
  return units.empty() ? std::string() : units.front();
}

Bytes SigningIdentity::leafSHA1() const {
  return copyOf(digestOf(HashType::sha1, derOf(leaf_.certificate.get())).bytes());
}

}  // namespace lab
