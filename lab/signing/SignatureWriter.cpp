#include "SignatureWriter.h"

#include <algorithm>

#include "Base/Text.h"
#include "BlobWriter.h"
#include "CMSWriter.h"
#include "CodeDirectory.h"
#include "RequirementBlob.h"
#include "RequirementText.h"
#include "SuperBlob.h"

namespace lab {

namespace {

constexpr std::uint32_t kVersion = 0x20400;
constexpr std::uint32_t kHeaderSize = 88;
// A CMS with five certificates, two of them in a timestamp.
constexpr std::uint64_t kRoomForCMS = 16384;

std::uint64_t pageCount(const SigningSubject& subject) {
  if (subject.code.empty()) return 0;
  if (subject.pageLog == 0) return 1;
  return ((subject.code.size() - 1) >> subject.pageLog) + 1;
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + "\"";
}

// Names the team where the chain allows it, so that code signed with the team's next certificate meets it
// too.
std::string designatedText(const std::string& identifier, const SigningIdentity& identity) {
  const std::string named = "identifier " + quoted(identifier);
  const std::string ofTeam = " and certificate leaf[subject.OU] = " + quoted(identity.team());
  if (identity.isDeveloperID()) {
    return fmt::format(
        "{} and anchor apple generic and certificate 1[field.{}] and certificate leaf[field.{}]{}", named,
        kDeveloperIDIntermediate, kDeveloperIDLeaf, ofTeam);
  }
  if (identity.team().empty() || identity.issuers().empty())
    return named + " and certificate leaf = H\"" + installer::hexadecimal(identity.leafSHA1()) + "\"";
  return named + " and certificate 1 = H\"" + installer::hexadecimal(identity.issuerSHA1()) + "\"" + ofTeam;
}

Outcome<Bytes> makeRequirements(const std::string& identifier, const SigningIdentity& identity) {
  if (identity.isAdHoc()) return writeRequirementSet({});
  const auto requirement = parseRequirement(designatedText(identifier, identity));
  if (!requirement) return handOn(requirement);
  return writeRequirementSet({{kDesignatedType, writeRequirementBlob(*requirement)}});
}

// Writes one code directory. `sealed` has the content of each special slot's digest.
class DirectoryWriter {
 public:
  DirectoryWriter(const SigningSubject& subject, const std::map<std::uint32_t, ByteView>& sealed,
                  HashType type)
      : subject_(&subject), sealed_(&sealed), hasher_(type), type_(type) {}

  Bytes write(const std::string& team, std::uint32_t flags) {
    const std::string texts = subject_->identifier + '\0' + (team.empty() ? std::string() : team + '\0');
    const std::uint32_t specials = sealed_->empty() ? 0 : sealed_->rbegin()->first;
    const auto size = static_cast<std::uint32_t>(digestSize(type_));
    const std::uint32_t hashOffset = kHeaderSize + static_cast<std::uint32_t>(texts.size()) + specials * size;
    const auto teamOffset =
        team.empty() ? 0 : kHeaderSize + static_cast<std::uint32_t>(subject_->identifier.size()) + 1;
    BlobWriter out;
    for (const std::uint32_t field :
         {kVersion, flags, hashOffset, kHeaderSize, specials,
          static_cast<std::uint32_t>(pageCount(*subject_)),
          static_cast<std::uint32_t>(std::min<std::uint64_t>(subject_->code.size(), UINT32_MAX))}) {
      out.number(field);
    }
    out.byte(static_cast<std::uint8_t>(size));
    out.byte(static_cast<std::uint8_t>(type_));
    out.byte(0);
    out.byte(subject_->pageLog);
    out.number(0);  // spare
    out.number(0);  // scatter
    out.number(teamOffset);
    out.number(0);  // spare
    out.number64(subject_->code.size() > UINT32_MAX ? subject_->code.size() : 0);
    out.number64(0);
    out.number64(subject_->execSegmentLimit);
    out.number64(subject_->isMainBinary ? 1 : 0);
    out.append(viewOf(texts));
    for (std::uint32_t slot = specials; slot > 0; --slot) special(out, slot, size);
    pages(out);
    return blobOf(kCodeDirectoryMagic, out.take());
  }

 private:
  void special(BlobWriter& out, std::uint32_t slot, std::uint32_t size) {
    const auto found = sealed_->find(slot);
    if (found == sealed_->end()) return out.append(Bytes(size));
    out.append(hasher_.of(found->second).bytes());
  }

  void pages(BlobWriter& out) {
    const std::uint64_t pageSize =
        subject_->pageLog == 0 ? subject_->code.size() : std::uint64_t{1} << subject_->pageLog;
    for (std::uint64_t at = 0; at < subject_->code.size(); at += pageSize) {
      out.append(
          hasher_.of(*slice(subject_->code, at, std::min(pageSize, subject_->code.size() - at))).bytes());
    }
  }

  const SigningSubject* subject_;
  const std::map<std::uint32_t, ByteView>* sealed_;
  Hasher hasher_;
  HashType type_;
};

}  // namespace

Outcome<std::map<std::uint32_t, Bytes>> makeSignature(const SigningSubject& subject,
                                                      const SigningIdentity& identity,
                                                      const SigningOptions& options) {
  std::map<std::uint32_t, Bytes> blobs;
  auto requirements = makeRequirements(subject.identifier, identity);
  if (!requirements) return handOn(requirements);
  blobs[kRequirementsSlot] = std::move(*requirements);
  if (!options.entitlements.empty())
    blobs[kEntitlementsSlot] = blobOf(kEntitlementsMagic, options.entitlements);
  std::map<std::uint32_t, ByteView> sealed = subject.outside;
  for (const auto& [slot, blob] : blobs) sealed[slot] = blob;

  const std::string team = identity.isAdHoc() ? std::string() : options.team.value_or(identity.team());
  const std::uint32_t flags = options.flags | (identity.isAdHoc() ? kAdHocFlag : 0U);
  std::vector<CodeDirectory> directories;
  for (std::size_t i = 0; i < options.digests.size(); ++i) {
    const auto slot = i == 0 ? kCodeDirectorySlot : kFirstAlternateSlot + static_cast<std::uint32_t>(i) - 1;
    Bytes& blob = blobs[slot];
    blob = DirectoryWriter(subject, sealed, options.digests[i]).write(team, flags);
    auto directory = CodeDirectory::read(blob);
    if (!directory) return handOn(directory);
    directories.push_back(*directory);
  }
  if (identity.isAdHoc()) return blobs;
  auto cms = signDirectories(directories, identity, options);
  if (!cms) return handOn(cms);
  blobs[kSignatureSlot] = std::move(*cms);
  return blobs;
}

Bytes superBlobOf(std::map<std::uint32_t, Bytes> blobs) {
  Bytes& cms = blobs[kSignatureSlot];  // ad hoc code gets an empty wrapper, as from the platform's tool
  cms = blobOf(kBlobWrapperMagic, cms);
  return blobIndexOf(kSuperBlobMagic, blobs);
}

std::uint64_t largestSignature(const SigningSubject& subject, const SigningOptions& options) {
  std::uint64_t size = kRoomForCMS + options.entitlements.size();
  for (const HashType type : options.digests) {
    size += kHeaderSize + subject.identifier.size() + 64 +
            (pageCount(subject) + kLastHashedSlot) * digestSize(type);
  }
  return size;
}

}  // namespace lab
