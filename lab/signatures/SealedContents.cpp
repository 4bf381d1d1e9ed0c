#include "SealedContents.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "MappedFile.h"

namespace lab {

namespace {

constexpr std::size_t kMostThreads = 8;
constexpr std::size_t kPieceBytes = std::size_t{128} << 10U;

// Runs `work` on `count` threads, including this one; on fewer when the system allows no more.
template <class Work>
void runAtOnce(std::size_t count, const Work& work) {
  std::vector<std::jthread> others;
  try {
    while (others.size() + 1 < count) others.emplace_back(work);
  } catch (const std::system_error&) {  // the others and this thread do the whole work
  }
  work();
}

}  // namespace

void SealedContents::add(std::filesystem::path file, std::string relative, const ResourceSeal& seal) {
  files_.push_back({std::move(file), std::move(relative), &seal});
}

Outcome<void> SealedContents::check() const {
  std::vector<Outcome<void>> outcomes(files_.size());
  std::atomic<std::size_t> next = 0;
  std::atomic<bool> hasFailed = false;
  // Files are taken in order, and a taken file is always checked, so every file before a failed one has its
  // result.
  const auto work = [&] {
    Bytes piece(kPieceBytes);
    while (!hasFailed) {
      const std::size_t taken = next++;
      if (taken >= files_.size()) return;
      outcomes[taken] = check(files_[taken], piece);
      if (!outcomes[taken]) hasFailed = true;
    }
  };
  runAtOnce(std::min({files_.size(), kMostThreads, std::size_t{std::thread::hardware_concurrency()}}), work);
  const auto failed = std::ranges::find_if_not(outcomes, &Outcome<void>::has_value);
  return failed == outcomes.end() ? Outcome<void>() : *failed;
}

Outcome<void> SealedContents::check(const SealedFile& file, Bytes& piece) {
  const auto digest = digestOfFile(file.path, file.seal->hashType, piece);
  if (!digest) return handOn(digest);
  if (equal(digest->bytes(), file.seal->hash)) return {};
  return refuse("a sealed resource has been modified: {}", printable(file.relative));
}

}  // namespace lab
