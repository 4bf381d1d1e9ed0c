#include "SigningIdentity.h"

#include <algorithm>
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

Certificate parsed(const X509Pointer& certificate) {
  return Certificate::readDER(derOf(certificate.get())).value();
}

// The chain above `top`, in order, as far as `found` has it.
std::vector<X509Pointer> chainAbove(X509Pointer top, const std::vector<X509Pointer>& found) {
  std::vector<X509Pointer> chain;
  while (chain.size() < found.size() && !parsed(top).isSelfIssued()) {
    const auto issuer = std::ranges::find_if(
        found, [&](const X509Pointer& one) { return X509_check_issued(one.get(), top.get()) == X509_V_OK; });
    if (issuer == found.end()) break;
    top = chain.emplace_back(*issuer);
  }
  return chain;
}

std::string issuerName(const X509Pointer& certificate) {
  const X509_NAME* name = X509_get_issuer_name(certificate.get());
  const BIOPointer text(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(text.get(), name, 0, XN_FLAG_ONELINE);
  const char* start = nullptr;
  const auto length = BIO_get_mem_data(text.get(), &start);
  return {start, static_cast<std::size_t>(length)};
}

std::unexpected<Failure> lacksIssuer(const X509Pointer& certificate) {
  return refuse("the identity lacks the certificate \"{}\", which issued \"{}\"", issuerName(certificate),
                parsed(certificate).displayName());
}

}  // namespace

Outcome<SigningIdentity> SigningIdentity::fromPKCS12(const std::filesystem::path& file,
                                                     const std::string& password) {
  const auto content = MappedFile::open(file, Links::follow);
  if (!content) return handOn(content);
  const unsigned char* from = content->bytes().data();
  const PKCS12Pointer sealed(d2i_PKCS12(nullptr, &from, static_cast<long>(content->bytes().size())));
  if (!sealed) return refuse("{} isn't a PKCS#12 file", file.string());
  // Some programs still export with algorithms that only this provider has.
  const ProviderPointer legacy(OSSL_PROVIDER_try_load(nullptr, "legacy", 1));
  EVP_PKEY* key = nullptr;
  X509* leaf = nullptr;
  STACK_OF(X509)* others = nullptr;
  if (PKCS12_parse(sealed.get(), password.c_str(), &key, &leaf, &others) != 1) {
    return refuse("{} can't be opened with this password", file.string());
  }
  const StackPointer issuers(others);
  SigningIdentity identity;
  identity.leaf_ = {own(leaf), own(key)};
  std::vector<X509Pointer> found;
  for (int at = 0; at < sk_X509_num(others); ++at) found.push_back(own(sk_X509_value(others, at)));
  if (key == nullptr || leaf == nullptr) return refuse("{} holds no key with its certificate", file.string());
  identity.issuers_ = chainAbove(identity.leaf_.certificate, found);
  const bool isComplete = !identity.issuers_.empty() || parsed(identity.leaf_.certificate).isSelfIssued();
  return isComplete ? Outcome<SigningIdentity>(identity) : lacksIssuer(identity.leaf_.certificate);
}

std::string SigningIdentity::team() const {
  if (isAdHoc()) return {};
  const auto units = parsed(leaf_.certificate).subject("OU");
  return units.empty() ? std::string() : units.front();
}

Bytes SigningIdentity::leafSHA1() const {
  return parsed(leaf_.certificate).sha1();
}

Bytes SigningIdentity::issuerSHA1() const {
  return issuers_.empty() ? Bytes() : parsed(issuers_.front()).sha1();
}

bool SigningIdentity::isDeveloperID() const {
  return !issuers_.empty() && parsed(issuers_.front()).hasExtension(kDeveloperIDIntermediate) &&
         parsed(leaf_.certificate).hasExtension(kDeveloperIDLeaf);
}

Outcome<void> SigningIdentity::checkTime(std::chrono::sys_seconds time) const {
  const Certificate leaf = parsed(leaf_.certificate);
  if (leaf.notBefore() <= time && time <= leaf.notAfter()) return {};
  return refuse("the certificate \"{}\" is valid from {} to {}, but the signing time is {}",
                leaf.displayName(), showTime(leaf.notBefore()), showTime(leaf.notAfter()), showTime(time));
}

Outcome<void> SigningIdentity::writeRoot(const std::filesystem::path& file) const {
  const X509Pointer& top = issuers_.empty() ? leaf_.certificate : issuers_.back();
  if (!parsed(top).isSelfIssued()) return lacksIssuer(top);
  return writeCertificate(file, top);
}

}  // namespace lab
