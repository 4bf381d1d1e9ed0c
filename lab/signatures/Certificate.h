// An X.509 certificate, with the properties that a code signature needs.
// Immutable, cheap to copy (the copies share OpenSSL's object); any thread.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

struct x509_st;

namespace lab {

class Certificate {
 public:
  static Outcome<Certificate> readDER(ByteView der);
  // Reads a PEM or DER file; the first of several PEM certificates.
  static Outcome<Certificate> readFile(const std::filesystem::path& path);

  const Bytes& der() const { return *der_; }  // the bytes it was read from, not a re-encoding
  x509_st* handle() const { return handle_.get(); }
  Bytes sha1() const;
  Bytes sha256() const;

  // All values of a subject field, in their order. Fields: "CN", "OU", "O", "C", "L", "ST", "UID", ...
  std::vector<std::string> subject(std::string_view field) const;
  // The first common name, else the whole subject, printable.
  std::string displayName() const;

  bool hasExtension(const std::string& objectIdentifier) const;
  bool hasExtendedUsage(const std::string& objectIdentifier) const;
  bool allowsDigitalSignature() const;  // the key usage is present and has that bit
  bool isSelfIssued() const;
  // True when issuer and serial number (both DER elements) name this certificate.
  bool isNamedBy(ByteView issuer, ByteView serial) const;
  bool hasSubjectKeyIdentifier(ByteView identifier) const;

  std::chrono::sys_seconds notBefore() const;
  std::chrono::sys_seconds notAfter() const;

 private:
  Certificate(Bytes der, std::shared_ptr<x509_st> handle);

  std::shared_ptr<const Bytes> der_;
  std::shared_ptr<x509_st> handle_;
};

// As "2026-01-31 12:00:00 UTC".
std::string showTime(std::chrono::sys_seconds time);

}  // namespace lab
