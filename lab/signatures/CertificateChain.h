// The chain from a leaf certificate to a trusted root.
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
  bool expired = false;  // a certificate had expired at the time of the check, and that was tolerated

  const Certificate& leaf() const { return certificates.front(); }
  const Certificate& root() const { return certificates.back(); }
};

struct ChainQuestion {
  Certificate leaf;
  std::span<const Certificate> others;  // intermediates and roots, in any order
  std::chrono::sys_seconds at;
  Expiry expiry = Expiry::fatal;
  Purpose purpose = Purpose::code;
};

// An unsupported critical extension is fatal, except in the platform vendor's arc. Revocation isn't checked,
// because there is no network here.
Outcome<CertificateChain> buildChain(const ChainQuestion& question, const Anchors& anchors);

}  // namespace lab
