// The signer, and the options of the signature.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Digest.h"
#include "TestAuthority.h"

namespace lab {

struct SigningOptions {
  std::string identifier;                           // empty: from Info.plist, else from the file's name
  std::optional<std::string> team;                  // instead of the leaf's; false unless both are the same
  std::uint32_t flags = 0;                          // of the code directory, without the ad hoc flag
  std::vector<HashType> digests{HashType::sha256};  // one code directory each, the first is the primary one
  Bytes entitlements;                               // a property list; empty for none
  std::chrono::sys_seconds time;                    // the claimed signing time, and the timestamp's
  bool stamped = true;                              // by the test authority's own timestamping leaf
  std::string timestampURL;                         // timestamp by this server instead; empty for none
  bool keepNested = false;                          // nested code is sealed unchanged and not signed again
};

class SigningIdentity {
 public:
  // No signer: ad hoc code.
  SigningIdentity() = default;
  SigningIdentity(const TestAuthority& authority, LeafKind kind)
      : leaf_(authority.leaf(kind)),
        issuers_(authority.issuers(kind)),
        timestamper_(authority.timestamper()),
        kind_(kind) {}

  // The key and the certificates of a PKCS#12 file, which must hold the leaf's issuer unless the leaf is
  // self-signed. Certificates outside the leaf's chain are left out.
  static Outcome<SigningIdentity> fromPKCS12(const std::filesystem::path& file, const std::string& password);

  bool isAdHoc() const { return leaf_.certificate == nullptr; }
  LeafKind kind() const { return kind_; }
  const KeyedCertificate& leaf() const { return leaf_; }
  // The chain above the leaf, in order; the root may be missing.
  const std::vector<X509Pointer>& issuers() const { return issuers_; }
  const KeyedCertificate& timestamper() const { return timestamper_; }
  std::string team() const;  // the leaf's organizational unit; empty for ad hoc
  Bytes leafSHA1() const;
  Bytes issuerSHA1() const;    // empty for a self-signed leaf
  bool isDeveloperID() const;  // leaf and issuer have the extensions that mark a Developer ID
  // A failure unless the leaf is valid at `time`.
  Outcome<void> checkTime(std::chrono::sys_seconds time) const;
  // Writes the root as PEM; a failure if the chain has none.
  Outcome<void> writeRoot(const std::filesystem::path& file) const;

 private:
  KeyedCertificate leaf_;
  std::vector<X509Pointer> issuers_;
  KeyedCertificate timestamper_;
  LeafKind kind_ = LeafKind::valid;
};

}  // namespace lab
