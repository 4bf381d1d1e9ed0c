// The secure timestamp of a timestamping authority over a code signature.
#pragma once

#include <chrono>

#include "CertificateChain.h"
#include "SignedData.h"

namespace lab {

// The greatest time by which a signing time may be after this machine's clock, which may be slow.
inline constexpr std::chrono::hours kClockTolerance{24};

struct Timestamp {
  std::chrono::sys_seconds time;
  CertificateChain chain;
};

// Absent when the signature has none. An invalid one is a failure: the token must be for this signature, by a
// timestamping certificate that chains to a root that is trusted for timestamps.
Outcome<std::optional<Timestamp>> readTimestamp(const SignedData& signature, const Anchors& anchors,
                                                std::chrono::sys_seconds now);

}  // namespace lab
