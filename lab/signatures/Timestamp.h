// The secure timestamp that a timestamping authority put over a code signature.
#pragma once

#include <chrono>

#include "CertificateChain.h"
#include "SignedData.h"

namespace lab {

// How far a signing time may lie in the future of this machine, whose clock may be slow.
inline constexpr std::chrono::hours kClockTolerance{24};

struct Timestamp {
  std::chrono::sys_seconds time;
  CertificateChain chain;
};

// Absent when the signature carries none. One that is there and doesn't hold is a failure: the token must
// be for this very signature, by a timestamping certificate that chains to a believed root.
Outcome<std::optional<Timestamp>> readTimestamp(const SignedData& signature, const Anchors& anchors,
                                                std::chrono::sys_seconds now);

}  // namespace lab
