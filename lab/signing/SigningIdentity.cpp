#include "SigningIdentity.h"

#include "Certificate.h"
#include "DER.h"

namespace lab {

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
