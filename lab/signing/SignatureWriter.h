// Builds the parts of a code signature.
#pragma once

#include <map>
#include <span>

#include "Outcome.h"
#include "SigningIdentity.h"

namespace lab {

// The code to sign.
struct SigningSubject {
  std::string identifier;
  ByteView code;                              // pages cover all of it
  std::uint8_t pageLog = 12;                  // 0: a single page
  std::map<std::uint32_t, ByteView> outside;  // contents of special slots outside the signature
  std::uint32_t execSegmentLimit = 0;         // size of __TEXT; 0 when there is none
  bool isMainBinary = false;
};

// All blobs of the signature by slot, the CMS bare (and absent for ad hoc code).
Outcome<std::map<std::uint32_t, Bytes>> makeSignature(const SigningSubject& subject,
                                                      const SigningIdentity& identity,
                                                      const SigningOptions& options);

// The same as one SuperBlob, with the CMS in its wrapper.
Bytes superBlobOf(std::map<std::uint32_t, Bytes> blobs);

// An upper bound for the SuperBlob of makeSignature() for this subject.
std::uint64_t largestSignature(const SigningSubject& subject, const SigningOptions& options);

}  // namespace lab
