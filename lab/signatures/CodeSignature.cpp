#include "CodeSignature.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "PageHashes.h"
#include "RequirementBlob.h"
#include "SuperBlob.h"

namespace lab {

namespace {

bool isAlternate(std::uint32_t slot) {
  return slot >= kFirstAlternateSlot && slot <= kLastAlternateSlot;
}

// The required magic of a slot's blob; 0 when any is valid.
std::uint32_t magicOf(std::uint32_t slot) {
  switch (slot) {
    case kRequirementsSlot: return kRequirementsMagic;
    case kEntitlementsSlot: return kEntitlementsMagic;
    case kEntitlementsDERSlot: return kEntitlementsDERMagic;
    default: return 0;
  }
}

Outcome<void> addSealedBlob(SignatureParts& parts, std::uint32_t slot, ByteView blob) {
  const std::uint32_t magic = magicOf(slot);
  if (magic != 0 && be32(blob, 0) != magic)
    return refuse("the blob in signature slot {} has the wrong magic number", slot);
  // The seal of the top directory excludes its header; the others include theirs.
  parts.sealed[slot] = slot == kTopDirectorySlot ? blob.subspan(8) : blob;
  return {};
}

Outcome<void> checkSlot(const CodeDirectory& directory, std::uint32_t slot, ByteView content) {
  const auto stored = directory.specialHash(slot);
  static constexpr const char* kNames[] = {"code directory",     "Info.plist",         "requirements",
                                           "resource seal",      "top directory",      "entitlements",
                                           "disk image trailer", "DER entitlements",   "launch constraints",
                                           "launch constraints", "launch constraints", "library constraints"};
  if (!stored) return refuse("{} isn't sealed by the signature", kNames[slot]);
  if (!equal(*stored, digestOf(directory.hashType(), content).bytes()))
    return refuse("{} has been modified", kNames[slot]);
  return {};
}

Outcome<void> checkDirectory(const CodeDirectory& directory, const SignatureParts& parts,
                             const SignedSurroundings& around) {
  if (directory.codeLimit() != around.limit) return refuse("signature doesn't cover the code up to its end");
  for (std::uint32_t slot = 1; slot <= directory.specialCount(); ++slot) {
    if (!directory.specialHash(slot)) continue;
    if (slot > kLastHashedSlot) return refuse("signature seals the unknown slot {}", slot);
    if (!parts.sealed.contains(slot) && !around.outside.contains(slot)) {
      return refuse("signature seals something that is missing (slot {})", slot);
    }
  }
  for (const auto& [slot, content] : parts.sealed) {
    if (auto same = checkSlot(directory, slot, content); !same) return handOn(same);
  }
  for (const auto& [slot, content] : around.outside) {
    if (!around.mustBeSealed.contains(slot) && !directory.specialHash(slot)) continue;
    if (auto same = checkSlot(directory, slot, content); !same) return handOn(same);
  }
  return {};
}

ByteView bareCMS(ByteView bytes) {
  return be32(bytes, 0) == kBlobWrapperMagic && be32(bytes, 4) == bytes.size() ? bytes.subspan(8) : bytes;
}

// Null when there is no list after `headerSize` bytes of the slot's content.
std::shared_ptr<const Json> listIn(const std::map<std::uint32_t, ByteView>& contents, std::uint32_t slot,
                                   std::size_t headerSize) {
  const auto found = contents.find(slot);
  if (found == contents.end()) return nullptr;
  auto list = readPropertyList(found->second.subspan(headerSize));
  return list ? std::make_shared<const Json>(*std::move(list)) : nullptr;
}

Outcome<void> readDesignated(const SignatureParts& parts, CodeFacts& facts) {
  const auto set = parts.sealed.find(kRequirementsSlot);
  if (set == parts.sealed.end()) return {};
  const auto blob = findRequirement(set->second, kDesignatedType);
  if (!blob) return handOn(blob, "requirements");
  if (!*blob) return {};
  auto requirement = readRequirementBlob(**blob);
  // An operation of a newer system makes the requirement unusable; the signature stays valid.
  if (requirement) facts.designated = std::move(*requirement);
  if (!requirement) facts.designatedProblem = requirement.error().reason;
  return {};
}

}  // namespace

Outcome<SignatureParts> SignatureParts::fromSuperBlob(ByteView bytes) {
  auto blobs = readBlobIndex(bytes, kSuperBlobMagic);
  if (!blobs) return handOn(blobs);
  if (const auto wrapped = blobs->find(kSignatureSlot); wrapped != blobs->end()) {
    if (be32(wrapped->second, 0) != kBlobWrapperMagic)
      return refuse("the signature's wrapper has the wrong magic number");
  }
  return fromBlobs(*blobs);
}

Outcome<SignatureParts> SignatureParts::fromBlobs(const std::map<std::uint32_t, ByteView>& blobs) {
  SignatureParts parts;
  if (!blobs.contains(kCodeDirectorySlot)) return refuse("signature has no code directory");
  for (const auto& [slot, blob] : blobs) {
    if (slot == kSignatureSlot) parts.cms = bareCMS(blob);
    if (slot == kCodeDirectorySlot || isAlternate(slot)) {
      auto directory = CodeDirectory::read(blob);
      if (!directory) return handOn(directory);
      parts.directories.push_back(*directory);
      continue;
    }
    if (slot == kInfoPlistSlot || slot == kResourcesSlot || slot == kRepresentationSlot) {
      return refuse("signature holds a blob for slot {}, which must be outside of it", slot);
    }
    if (slot > kLastHashedSlot) continue;  // a stapled ticket and later slots aren't sealed
    if (auto added = addSealedBlob(parts, slot, blob); !added) return handOn(added);
  }
  return parts;
}

Outcome<void> checkSeals(const SignatureParts& parts, const SignedSurroundings& surroundings) {
  const CodeDirectory& primary = parts.directories.front();
  for (const CodeDirectory& directory : parts.directories) {
    if (directory.identifier() != primary.identifier() || directory.team() != primary.team()) {
      return refuse("the signature's code directories name different code");
    }
    if ((directory.flags() & kAdHocFlag) != (primary.flags() & kAdHocFlag))
      return refuse("only some of the signature's code directories have a signer");
    if (auto holds = checkDirectory(directory, parts, surroundings); !holds) return handOn(holds);
  }
  return checkPages(surroundings.code, parts.directories);
}

Outcome<CodeFacts> readFacts(const SignatureParts& parts, const SignedSurroundings& surroundings) {
  const CodeDirectory& primary = parts.directories.front();
  CodeFacts facts;
  facts.identifier = primary.identifier();
  facts.team = primary.team();
  facts.flags = primary.flags();
  facts.version = primary.version();
  for (const CodeDirectory& directory : parts.directories) {
    facts.hashTypes.push_back(directory.hashType());
    facts.cdhashes.push_back(directory.cdhash());
  }
  if (auto read = readDesignated(parts, facts); !read) return handOn(read);
  facts.entitlements = listIn(parts.sealed, kEntitlementsSlot, 8);
  facts.info = surroundings.info ? surroundings.info : listIn(surroundings.outside, kInfoPlistSlot, 0);
  return facts;
}

const Bytes& CodeFacts::cdhash() const {
  const auto rank = [](HashType type) {
    return type == HashType::sha256Truncated ? 1 : static_cast<int>(type);
  };
  const auto best = std::ranges::max_element(hashTypes, {}, rank);
  return cdhashes[static_cast<std::size_t>(best - hashTypes.begin())];
}

RequirementSubject CodeFacts::subject() const {
  RequirementSubject subject{identifier, cdhashes, {}, std::nullopt, info.get(), entitlements.get()};
  if (!chain) return subject;
  subject.certificates = chain->certificates;
  subject.anchor = chain->anchor;
  return subject;
}

}  // namespace lab
