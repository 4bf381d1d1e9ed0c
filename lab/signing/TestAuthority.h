// A certificate authority for fixtures, with the structure of the platform vendor's. Trusted only where the
// settings name it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "OpenSSLPointer.h"
#include "Outcome.h"

namespace lab {

// A certificate and its key.
struct KeyedCertificate {
  X509Pointer certificate;
  KeyPointer key;
};

// Extensions that mark the certificates of a Developer ID.
inline constexpr const char* kDeveloperIDIntermediate = "1.2.840.113635.100.6.2.6";
inline constexpr const char* kDeveloperIDLeaf = "1.2.840.113635.100.6.1.13";

// As PEM.
Outcome<void> writeCertificate(const std::filesystem::path& path, const X509Pointer& certificate);

// Selects the leaf that signs.
enum class LeafKind { valid, expired, notYetValid, wrongTeam, selfSigned };

// The team of the leaf `wrongTeam`.
inline constexpr const char* kWrongTeam = "WRONGTEAM0";

class TestAuthority {
 public:
  // Makes root, intermediate, leaves and timestamping leaf in `folder`, which is created. The keys in it
  // aren't protected. "root.pem" is for the key "testAuthority" of the host's settings.
  static Outcome<void> make(const std::filesystem::path& folder, const std::string& team,
                            const std::string& name);

  static Outcome<TestAuthority> load(const std::filesystem::path& folder);

  KeyedCertificate leaf(LeafKind kind) const;
  const KeyedCertificate& timestamper() const { return timestamper_; }
  // The other certificates of a signature; empty for the self-signed leaf.
  std::vector<X509Pointer> issuers(LeafKind kind) const;

 private:
  X509Pointer root_;
  X509Pointer intermediate_;
  KeyPointer leafKey_;
  std::vector<X509Pointer> leaves_;  // by LeafKind
  KeyedCertificate timestamper_;
};

}  // namespace lab
