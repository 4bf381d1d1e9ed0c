// Builds the parts of a code signature.
#pragma once

#include <map>
#include <span>

#include "Outcome.h"
#include "SigningIdentity.h"

namespace lab {

// What is signed.
struct SigningSubject {
  std::string identifier;
  ByteView code;                              // pages cover it up to its end
  std::uint8_t pageLog = 12;                  // 0: one page
  std::map<std::uint32_t, ByteView> outside;  // contents of special slots that stand outside of the signature
  std::uint32_t execSegmentLimit = 0;         // size of __TEXT; 0 where there is none
  bool isMainBinary = false;
};

// All blobs of the signature by slot, the CMS bare (and absent for ad hoc code).
Outcome<std::map<std::uint32_t, Bytes>> makeSignature(const SigningSubject& subject,
                                                      const SigningIdentity& identity,
                                                      const SigningOptions& options);

// The same as one SuperBlob, with the CMS in its wrapper.
Bytes superBlobOf(std::map<std::uint32_t, Bytes> blobs);

// A size that makeSignature() for this subject won't exceed as a SuperBlob.
std::uint64_t largestSignature(const SigningSubject& subject, const SigningOptions& options);

}  // namespace lab
