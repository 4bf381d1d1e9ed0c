// A certificate authority for fixtures: shaped like the platform vendor's, trusted by nobody who isn't told
// to.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "OpenSSLPointer.h"
#include "Outcome.h"

namespace lab {

// A certificate with the key that goes with it.
struct KeyedCertificate {
  X509Pointer certificate;
  KeyPointer key;
};

// Which leaf signs.
enum class LeafKind { valid, expired, notYetValid, wrongTeam, selfSigned };

// Team of the leaf `wrongTeam`.
inline constexpr const char* kWrongTeam = "WRONGTEAM0";

class TestAuthority {
 public:
  // Makes root, intermediate, leaves and timestamping leaf in `folder`, which is created. The keys lie there
  // unprotected; "root.pem" is what a host file may name.
  static Outcome<void> make(const std::filesystem::path& folder, const std::string& team,
                            const std::string& name);

  static Outcome<TestAuthority> load(const std::filesystem::path& folder);

  KeyedCertificate leaf(LeafKind kind) const;
  const KeyedCertificate& timestamper() const { return timestamper_; }
  // What goes into a signature beside the leaf; empty for the self-signed one.
  std::vector<X509Pointer> issuers(LeafKind kind) const;

 private:
  X509Pointer root_;
  X509Pointer intermediate_;
  KeyPointer leafKey_;
  std::vector<X509Pointer> leaves_;  // by LeafKind
  KeyedCertificate timestamper_;
};

}  // namespace lab
