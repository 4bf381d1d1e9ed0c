#include <algorithm>
#include <nlohmann/json.hpp>

#include "CodeSignature.h"
#include "SignedData.h"
#include "Timestamp.h"

namespace lab {

namespace {

constexpr const char* kCodeSigningUsage = "1.3.6.1.5.5.7.3.3";

// Checks the property list of truncated digests: one per directory, in their order.
Outcome<bool> checkHashPlist(const SignedData& data, const CodeFacts& facts) {
  if (!data.signedAttributes.contains(kHashPlistAttribute)) return false;
  const BERElement* value = data.signedValue(kHashPlistAttribute);
  if (value == nullptr || !value->is(kBEROctetString))
    return refuse("the signer's list of code directories is malformed");
  const auto list = readPropertyList(octetsOf(*value).value_or(Bytes()));
  const Json* hashes = list ? installer::JSONReader::member(*list, "cdhashes") : nullptr;
  if (hashes == nullptr || !hashes->is_array())
    return refuse("the signer's list of code directories is malformed");
  std::vector<Bytes> listed;
  for (const Json& hash : *hashes) listed.push_back(hash.is_binary() ? Bytes(hash.get_binary()) : Bytes());
  std::vector<Bytes> present = facts.cdhashes;
  std::ranges::sort(listed);
  std::ranges::sort(present);
  if (listed != present) return refuse("the signer signed other code directories than are present");
  return true;
}

// Checks the set of full digests: one per directory.
Outcome<bool> checkHashSet(const SignedData& data, const SignatureParts& parts) {
  const auto found = data.signedAttributes.find(kHashSetAttribute);
  if (found == data.signedAttributes.end()) return false;
  if (found->second.size() != parts.directories.size())
    return refuse("the signer signed other code directories than are present");
  for (const CodeDirectory& directory : parts.directories) {
    const Digest own = directory.fullHash();
    const auto isOwn = [&](const BERElement& entry) {
      const BERElement* hash = entry.child(1);
      const auto type = digestTypeOf(objectIdentifierOf(entry.child(0)));
      const bool sameType = type && functionOf(*type) == functionOf(directory.hashType());
      return sameType && hash != nullptr && hash->is(kBEROctetString) && equal(hash->content, own.bytes());
    };
    if (std::ranges::none_of(found->second, isOwn))
      return refuse("the signer signed other code directories than are present");
  }
  return true;
}

Outcome<void> checkSignedDirectories(const SignedData& data, const SignatureParts& parts,
                                     const CodeFacts& facts) {
  if (data.content) return refuse("signature contains content");
  if (auto holds = checkSignature(data, parts.directories.front().blob(), kDataType); !holds) return holds;
  const auto plist = checkHashPlist(data, facts);
  if (!plist) return handOn(plist);
  const auto set = checkHashSet(data, parts);
  if (!set) return handOn(set);
  if (parts.directories.size() > 1 && !*plist && !*set)
    return refuse("the signer signed only one of several code directories");
  return {};
}

Outcome<void> checkLeaf(const Certificate& leaf, const CodeFacts& facts) {
  if (!leaf.hasExtendedUsage(kCodeSigningUsage))
    return refuse("the signer's certificate isn't for code signing");
  if (!leaf.allowsDigitalSignature())
    return refuse("the signer's certificate doesn't allow digital signatures");
  if (facts.team.empty()) return {};
  const auto units = leaf.subject("OU");
  if (units.size() != 1) return refuse("the signer's certificate must name exactly one team");
  if (units.front() != facts.team) {
    return refuse("the code names team {} but its signer is of team {}", printable(facts.team),
                  printable(units.front()));
  }
  return {};
}

// A time server has the signer's root, or that of the timestamp authority if the signer has the test
// authority's.
bool mayStamp(const CertificateChain& server, const CertificateChain& signer) {
  if (server.anchor == AnchorKind::timestampAuthority && signer.anchor == AnchorKind::testAuthority)
    return true;
  return server.root().der() == signer.root().der();
}

std::vector<Certificate> leafFirst(const SignedData& data) {
  std::vector<Certificate> ordered{*data.signer};
  std::vector<Certificate> rest = data.certificates;
  std::erase_if(rest, [&](const Certificate& one) { return one.der() == data.signer->der(); });
  ordered.insert(ordered.end(), rest.begin(), rest.end());
  return ordered;
}

}  // namespace

Outcome<void> proveSigner(const SignatureParts& parts, const Anchors& anchors, std::chrono::sys_seconds now,
                          CodeFacts& facts) {
  if (facts.isAdHoc()) return parts.cms.empty() ? Outcome<void>{} : refuse("ad hoc code has a signer");
  if (parts.cms.empty()) return refuse("signature has no signer and isn't marked as ad hoc");
  const auto data = readSignedData(parts.cms);
  if (!data) return handOn(data);
  facts.authorities = leafFirst(*data);
  const BERElement* claimed = data->signedValue(kSigningTimeAttribute);
  if (claimed != nullptr) facts.claimedTime = timeOf(*claimed);
  if (auto holds = checkSignedDirectories(*data, parts, facts); !holds) return holds;

  const auto timestamp = readTimestamp(*data, anchors, now);
  if (!timestamp) return handOn(timestamp);
  // Without a timestamp an expired certificate is tolerated, unless the code has the flag against it.
  const bool mustBeCurrent = !*timestamp && (facts.flags & kForceExpirationFlag) != 0;
  auto at = *timestamp ? (*timestamp)->time : facts.claimedTime.value_or(now);
  if (mustBeCurrent) at = now;
  if (at > now + kClockTolerance) return refuse("the claimed signing time is in the future");
  const Expiry expiry = *timestamp || mustBeCurrent ? Expiry::fatal : Expiry::tolerated;
  auto chain = buildChain({*data->signer, data->certificates, at, expiry}, anchors);
  if (!chain) return handOn(chain);
  if (*timestamp && !mayStamp((*timestamp)->chain, *chain))
    return refuse("secure timestamp is from another root than the signer");
  if (auto fits = checkLeaf(chain->leaf(), facts); !fits) return fits;

  if (*timestamp) facts.timestamp = (*timestamp)->time;
  const auto hasExpired = [&](const Certificate& one) { return one.notAfter() < now; };
  facts.expiredUnstamped =
      !*timestamp && (chain->expired || std::ranges::any_of(chain->certificates, hasExpired));
  facts.authorities = chain->certificates;
  facts.chain = std::move(*chain);
  return {};
}

}  // namespace lab
