// A code signature's parts, from any storage, and the checks of their consistency.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Anchors.h"
#include "CertificateChain.h"
#include "CodeDirectory.h"
#include "PropertyList.h"
#include "Requirement.h"
#include "RequirementEvaluator.h"

namespace lab {

// Views into bytes that the caller keeps alive.
struct SignatureParts {
  std::vector<CodeDirectory> directories;    // the primary one first, then the alternates by slot
  std::map<std::uint32_t, ByteView> sealed;  // the content of a special slot's digest, by slot
  ByteView cms;                              // empty for ad hoc code

  // From a SuperBlob with slack after it, as in Mach-O files and disk images.
  static Outcome<SignatureParts> fromSuperBlob(ByteView bytes);

  // From separately stored blobs, by slot; the CMS is bare or in its wrapper of a SuperBlob.
  static Outcome<SignatureParts> fromBlobs(const std::map<std::uint32_t, ByteView>& blobs);
};

// The content outside a signature that it seals.
struct SignedSurroundings {
  ByteView code;                              // the slice or the file
  std::uint64_t limit = 0;                    // bytes that pages must cover
  std::map<std::uint32_t, ByteView> outside;  // contents outside the signature itself, by slot
  std::set<std::uint32_t> mustBeSealed;       // slots that every directory must cover
  std::shared_ptr<const Json> info{};  // the parsed Info.plist, if slices share it; else it is parsed again
};

// The facts of one signed slice or file. Has copies; outlives the bytes that it was read from.
struct CodeFacts {
  std::string architecture;  // of a Mach-O slice; else empty
  std::string identifier;
  std::string team;  // empty when there is none
  std::uint32_t flags = 0;
  std::uint32_t version = 0;
  std::vector<HashType> hashTypes;       // of the directories, in their order
  std::vector<Bytes> cdhashes;           // in the same order
  std::vector<Certificate> authorities;  // leaf first, as included; proven only when `chain` is present
  std::optional<CertificateChain> chain;
  std::string trustProblem;                             // why `chain` is absent after `inspect`
  std::optional<std::chrono::sys_seconds> timestamp;    // proven
  std::optional<std::chrono::sys_seconds> claimedTime;  // not proven
  bool expiredUnstamped =
      false;  // valid, but a certificate has expired and no timestamp proves an earlier signing
  std::optional<Requirement> designated;
  std::string designatedProblem;     // why the designated requirement can't be read
  std::shared_ptr<const Json> info;  // null or a JSON null, like the next, when missing or unreadable
  std::shared_ptr<const Json> entitlements;

  bool isAdHoc() const { return (flags & kAdHocFlag) != 0; }
  bool isVouchedForByTestAuthority() const { return chain && chain->anchor == AnchorKind::testAuthority; }
  const Bytes& cdhash() const;  // of the directory with the strongest digest
  RequirementSubject subject() const;
};

// Checks every page and every special slot of every directory, and that the directories cover the same code.
Outcome<void> checkSeals(const SignatureParts& parts, const SignedSurroundings& surroundings);

// The signature's unproven claims.
Outcome<CodeFacts> readFacts(const SignatureParts& parts, const SignedSurroundings& surroundings);

// Proves the signer: the CMS over the primary directory, the digests of all directories in it, timestamp,
// certificate chain, and that the team is the leaf's. Ad hoc code has no signer and passes. Sets the proven
// facts.
Outcome<void> proveSigner(const SignatureParts& parts, const Anchors& anchors, std::chrono::sys_seconds now,
                          CodeFacts& facts);

}  // namespace lab
