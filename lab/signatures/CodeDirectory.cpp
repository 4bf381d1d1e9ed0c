#include "CodeDirectory.h"

#include <array>
#include <utility>

#include "SuperBlob.h"

namespace lab {

namespace {

constexpr std::uint32_t kEarliestVersion = 0x20001;
constexpr std::uint32_t kScatterVersion = 0x20100;
constexpr std::uint32_t kTeamVersion = 0x20200;
constexpr std::uint32_t kLimit64Version = 0x20300;
constexpr std::uint32_t kMostSpecials = 64;
// Smaller pages would make hashing cost many times the file's size; no tool writes larger ones.
constexpr std::uint8_t kSmallestPageLog = 9;
constexpr std::uint8_t kLargestPageLog = 20;

std::uint64_t pagesIn(std::uint64_t limit, std::uint64_t pageSize) {
  if (pageSize == 0) return limit == 0 ? 0 : 1;
  return limit / pageSize + (limit % pageSize != 0 ? 1 : 0);
}

}  // namespace

Outcome<CodeDirectory> CodeDirectory::read(ByteView blob) {
  auto whole = wholeBlob(blob, kCodeDirectoryMagic, "code directory");
  if (!whole) return handOn(whole);
  if (blob.size() < 44) return refuse("code directory is truncated");
  CodeDirectory directory;
  directory.blob_ = blob;
  directory.version_ = *be32(blob, 8);
  directory.flags_ = *be32(blob, 12);
  if (directory.version_ < kEarliestVersion)
    return refuse("code directory version {:#x} is too old", directory.version_);
  const auto type = hashTypeOf(blob[37]);
  if (!type) return refuse("code directory uses the unknown digest {}", blob[37]);
  if (blob[36] != digestSize(*type)) return refuse("code directory's digest size doesn't fit its digest");
  directory.hashType_ = *type;
  if (auto texts = directory.readTexts(); !texts) return handOn(texts);
  if (auto tables = directory.readTables(); !tables) return handOn(tables);
  return directory;
}

Outcome<void> CodeDirectory::readTexts() {
  const auto identifier = zeroTerminated(blob_, *be32(blob_, 20));
  if (!identifier || identifier->empty()) return refuse("code directory has no identifier");
  identifier_ = *identifier;
  if (version_ < kTeamVersion) return {};
  const auto offset = be32(blob_, 48);
  if (!offset) return refuse("code directory is truncated");
  if (*offset == 0) return {};
  const auto team = zeroTerminated(blob_, *offset);
  if (!team) return refuse("code directory's team identifier isn't terminated");
  team_ = *team;
  return {};
}

Outcome<void> CodeDirectory::readTables() {
  hashOffset_ = *be32(blob_, 16);
  specialCount_ = *be32(blob_, 24);
  pageCount_ = *be32(blob_, 28);
  codeLimit_ = *be32(blob_, 32);
  if (version_ >= kScatterVersion && be32(blob_, 44) != 0U) return refuse("scattered code isn't supported");
  if (version_ >= kLimit64Version) {
    const auto limit64 = be64(blob_, 56);
    if (!limit64) return refuse("code directory is truncated");
    if (*limit64 != 0) codeLimit_ = *limit64;
  }
  const std::uint8_t pageLog = blob_[39];
  if (pageLog != 0 && (pageLog < kSmallestPageLog || pageLog > kLargestPageLog))
    return refuse("code directory has pages of 2^{} bytes", pageLog);
  pageSize_ = pageLog == 0 ? 0 : std::uint64_t{1} << pageLog;
  if (pageCount_ != pagesIn(codeLimit_, pageSize_))
    return refuse("code directory's page count doesn't follow from its code limit");
  const std::uint64_t size = digestSize(hashType_);
  if (specialCount_ > kMostSpecials || hashOffset_ < specialCount_ * size ||
      !slice(blob_, hashOffset_, pageCount_ * size)) {
    return refuse("code directory's digests exceed the blob");
  }
  return {};
}

ByteView CodeDirectory::pageHash(std::uint32_t page) const {
  const std::size_t size = digestSize(hashType_);
  return blob_.subspan(static_cast<std::size_t>(hashOffset_) + page * size, size);
}

std::optional<ByteView> CodeDirectory::specialHash(std::uint32_t slot) const {
  if (slot == 0 || slot > specialCount_) return std::nullopt;
  const std::size_t size = digestSize(hashType_);
  const ByteView stored = blob_.subspan(static_cast<std::size_t>(hashOffset_) - slot * size, size);
  if (allZero(stored)) return std::nullopt;
  return stored;
}

Digest CodeDirectory::fullHash() const {
  // The identity uses the untruncated function, also when the pages' digests are truncated.
  const HashType type = hashType_ == HashType::sha256Truncated ? HashType::sha256 : hashType_;
  return digestOf(type, blob_);
}

Bytes CodeDirectory::cdhash() const {
  const Digest full = fullHash();
  return copyOf(full.bytes().first(20));
}

std::string flagNames(std::uint32_t flags) {
  constexpr std::array<std::pair<std::uint32_t, const char*>, 9> names{
      {{0x1, "host"},
       {kAdHocFlag, "adhoc"},
       {0x100, "hard"},
       {0x200, "kill"},
       {kForceExpirationFlag, "expires"},
       {0x800, "restrict"},
       {0x2000, "library-validation"},
       {kHardenedRuntimeFlag, "runtime"},
       {kLinkerSignedFlag, "linker-signed"}}};
  std::string text;
  for (const auto& [flag, name] : names) {
    if ((flags & flag) == 0) continue;
    text += (text.empty() ? "" : ",") + std::string(name);
    flags &= ~flag;
  }
  if (flags != 0) text += fmt::format("{}{:#x}", text.empty() ? "" : ",", flags);
  return text.empty() ? "none" : text;
}

}  // namespace lab
