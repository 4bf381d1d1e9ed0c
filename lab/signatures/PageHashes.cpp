#include "PageHashes.h"

#include <algorithm>
#include <vector>

namespace lab {

namespace {

// A multiple of every page size that CodeDirectory accepts, and small enough for the cache.
constexpr std::uint64_t kWindow = std::uint64_t{1} << 20U;

// The progress of one directory through the code.
class PageWalk {
 public:
  explicit PageWalk(const CodeDirectory& directory) : directory_(&directory), hasher_(directory.hashType()) {}

  Outcome<void> window(ByteView code, std::uint64_t begin) {
    const std::uint64_t end = std::min(begin + kWindow, directory_->codeLimit());
    if (begin >= end) return {};
    if (directory_->pageSize() == 0) return onePage(code, begin, end);
    for (std::uint64_t at = begin; at < end; at += directory_->pageSize()) {
      const std::uint64_t length = std::min(directory_->pageSize(), end - at);
      hasher_.update(*slice(code, at, length));
      if (auto same = compare(static_cast<std::uint32_t>(at / directory_->pageSize()), at); !same)
        return same;
    }
    return {};
  }

 private:
  Outcome<void> onePage(ByteView code, std::uint64_t begin, std::uint64_t end) {
    hasher_.update(*slice(code, begin, end - begin));
    return end == directory_->codeLimit() ? compare(0, 0) : Outcome<void>{};
  }

  Outcome<void> compare(std::uint32_t page, std::uint64_t offset) {
    const Digest digest = hasher_.finish();
    if (equal(digest.bytes(), directory_->pageHash(page))) return {};
    return refuse("code has been modified (page {} at offset {:#x}, {})", page, offset,
                  nameOf(directory_->hashType()));
  }

  const CodeDirectory* directory_;
  Hasher hasher_;
};

}  // namespace

Outcome<void> checkPages(ByteView code, std::span<const CodeDirectory> directories) {
  std::vector<PageWalk> walks;
  std::uint64_t limit = 0;
  for (const CodeDirectory& directory : directories) {
    if (directory.codeLimit() > code.size()) return refuse("code is shorter than its signature says");
    limit = std::max(limit, directory.codeLimit());
    walks.emplace_back(directory);
  }
  for (std::uint64_t begin = 0; begin < limit; begin += kWindow) {
    for (PageWalk& walk : walks) {
      if (auto same = walk.window(code, begin); !same) return same;
    }
  }
  return {};
}

}  // namespace lab
