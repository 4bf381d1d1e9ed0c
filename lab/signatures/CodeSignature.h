// A code signature's parts, wherever they were stored, and the proof that they hold together.
#pragma once

#include <chrono>
#include <map>
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
  std::map<std::uint32_t, ByteView> sealed;  // what a special slot's digest is made over, by slot
  ByteView cms;                              // empty for ad hoc code

  // From a SuperBlob with slack behind it, as Mach-O files and disk images carry it.
  static Outcome<SignatureParts> fromSuperBlob(ByteView bytes);

  // From blobs that were stored one by one, by slot; the CMS bare or in the wrapper it has in a SuperBlob.
  static Outcome<SignatureParts> fromBlobs(const std::map<std::uint32_t, ByteView>& blobs);
};

// What stands around a signature and is sealed by it.
struct SignedSurroundings {
  ByteView code;                              // the slice or the file
  std::uint64_t limit = 0;                    // how much of it must be covered by pages
  std::map<std::uint32_t, ByteView> outside;  // contents that don't stand in the signature itself, by slot
  std::set<std::uint32_t> mustBeSealed;       // slots that every directory must cover
  const PropertyList* info =
      nullptr;  // what Info.plist says, where many slices share it; else it is read anew
};

// What is known about one signed slice or file. Copies; outlives the bytes it was read from.
struct CodeFacts {
  std::string architecture;  // of a Mach-O slice; else empty
  std::string identifier;
  std::string team;  // empty when there is none
  std::uint32_t flags = 0;
  std::uint32_t version = 0;
  std::vector<HashType> hashTypes;       // of the directories, in their order
  std::vector<Bytes> cdhashes;           // in the same order
  std::vector<Certificate> authorities;  // leaf first, as included; proven only when `chain` is there
  std::optional<CertificateChain> chain;
  std::string trustProblem;                             // why `chain` isn't there, when it was only looked at
  std::optional<std::chrono::sys_seconds> timestamp;    // proven
  std::optional<std::chrono::sys_seconds> claimedTime;  // only the signer's word
  bool expiredUnstamped =
      false;  // valid, but a certificate has expired and nothing proves an earlier signing
  std::optional<Requirement> designated;
  std::string designatedProblem;  // why there is a designated requirement that can't be read here
  PropertyList info;
  PropertyList entitlements;

  bool isAdHoc() const { return (flags & kAdHocFlag) != 0; }
  bool isVouchedForByTestAuthority() const { return chain && chain->anchor == AnchorKind::testAuthority; }
  const Bytes& cdhash() const;  // of the directory with the strongest digest
  RequirementSubject subject() const;
};

// Every page and every special slot of every directory, and that the directories agree about the code.
Outcome<void> checkSeals(const SignatureParts& parts, const SignedSurroundings& surroundings);

// What the signature says; nothing is proven by it.
Outcome<CodeFacts> readFacts(const SignatureParts& parts, const SignedSurroundings& surroundings);

// Proves who signed: the CMS over the primary directory, the digests of all directories in it, timestamp,
// certificate chain, and that the team is the leaf's. Ad hoc code has no signer and passes. Fills in the
// facts.
Outcome<void> proveSigner(const SignatureParts& parts, const Anchors& anchors, std::chrono::sys_seconds now,
                          CodeFacts& facts);

}  // namespace lab
