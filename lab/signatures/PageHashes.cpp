#include "PageHashes.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "Base/Mutex.h"

namespace lab {

namespace {

// The bytes that one thread hashes at a time; a multiple of every page size that CodeDirectory accepts.
constexpr std::uint64_t kStretch = std::uint64_t{4} << 20U;
constexpr std::size_t kMostThreads = 8;

// Some of a directory's pages: those that begin in [begin, end). A directory of one page is one stretch.
struct Stretch {
  const CodeDirectory* directory = nullptr;
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

Outcome<void> check(const Stretch& stretch, ByteView code) {
  const CodeDirectory& directory = *stretch.directory;
  Hasher hasher(directory.hashType());
  const std::uint64_t pageSize = directory.pageSize() == 0 ? stretch.end : directory.pageSize();
  for (std::uint64_t at = stretch.begin; at < stretch.end; at += pageSize) {
    const auto page = static_cast<std::uint32_t>(at / pageSize);
    const ByteView bytes = *slice(code, at, std::min(pageSize, stretch.end - at));
    if (equal(hasher.of(bytes).bytes(), directory.pageHash(page))) continue;
    return refuse("code has been modified (page {} at offset {:#x}, {})", page, at,
                  nameOf(directory.hashType()));
  }
  return {};
}

// In the order of the code, except that an indivisible directory comes first, because it takes longest.
std::vector<Stretch> divide(std::span<const CodeDirectory> directories) {
  std::vector<Stretch> stretches;
  for (const CodeDirectory& directory : directories) {
    const std::uint64_t limit = directory.codeLimit();
    const std::uint64_t length = directory.pageSize() == 0 ? limit : kStretch;
    for (std::uint64_t at = 0; at < limit; at += length)
      stretches.push_back({&directory, at, std::min(at + length, limit)});
  }
  std::ranges::sort(stretches, {}, [](const Stretch& stretch) {
    return std::tuple(stretch.directory->pageSize() != 0, stretch.begin, stretch.directory);
  });
  return stretches;
}

// Distributes the stretches to threads and keeps the earliest failure.
class Distribution {
 public:
  Distribution(ByteView code, std::vector<Stretch> stretches)
      : code_(code), stretches_(std::move(stretches)), failedAt_(stretches_.size()) {}

  Outcome<void> run() {
    {
      const std::size_t processors = std::min<std::size_t>(std::thread::hardware_concurrency(), kMostThreads);
      std::vector<std::jthread> helpers;
      while (helpers.size() + 1 < std::min(processors, stretches_.size()) && addTo(helpers)) {
      }
      work();
    }
    const installer::MutexLock lock(mutex_);
    return std::move(result_);
  }

 private:
  // False when no thread can be started; the check then only takes longer.
  bool addTo(std::vector<std::jthread>& helpers) {
    try {
      helpers.emplace_back([this] { work(); });
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  }

  // Stretches are taken in order, so all of them before a failure are checked.
  void work() {
    for (std::size_t i = 0; (i = next_.fetch_add(1)) < failedAt_.load();) {
      auto same = check(stretches_[i], code_);
      if (!same) fail(i, std::move(same));
    }
  }

  void fail(std::size_t index, Outcome<void> why) {
    const installer::MutexLock lock(mutex_);
    if (index >= failedAt_.load()) return;
    failedAt_ = index;
    result_ = std::move(why);
  }

  ByteView code_;
  std::vector<Stretch> stretches_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<std::size_t> failedAt_;  // index of the earliest failure; the number of stretches when none
  installer::Mutex mutex_;
  Outcome<void> result_ GUARDED_BY(mutex_);
};

}  // namespace

Outcome<void> checkPages(ByteView code, std::span<const CodeDirectory> directories) {
  for (const CodeDirectory& directory : directories) {
    if (directory.codeLimit() > code.size()) return refuse("code is shorter than in its signature");
  }
  return Distribution(code, divide(directories)).run();
}

}  // namespace lab
