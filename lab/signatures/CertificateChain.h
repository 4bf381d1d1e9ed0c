// From a leaf certificate to a root that is believed.
#pragma once

#include <chrono>
#include <span>
#include <vector>

#include "Anchors.h"
#include "Certificate.h"

namespace lab {

enum class Expiry { fatal, tolerated };

struct CertificateChain {
  std::vector<Certificate> certificates;  // leaf first, root last
  AnchorKind anchor = AnchorKind::platform;
  bool expired = false;  // some certificate had expired at the time it was judged at, and that was tolerated

  const Certificate& leaf() const { return certificates.front(); }
  const Certificate& root() const { return certificates.back(); }
};

struct ChainQuestion {
  Certificate leaf;
  std::span<const Certificate> others;  // intermediates and roots, in any order
  std::chrono::sys_seconds at;
  Expiry expiry = Expiry::fatal;
};

// A critical extension that isn't understood is fatal, but for the platform vendor's own arc.
// Revocation isn't asked: there is no network here.
Outcome<CertificateChain> buildChain(const ChainQuestion& question, const Anchors& anchors);

}  // namespace lab
