#include "Platform/Linux/HTTP/PartialFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/POSIX/ItemLock.h"
#include "Platform/Linux/HTTP/CurlErrors.h"

namespace installer {

namespace {

// kelo-download-{pid}-{six characters}.part
constexpr std::string_view kPrefix = "kelo-download-";
constexpr std::string_view kSuffix = ".part";
constexpr std::size_t kRandomLength = 6;
// A piece of a body has 16 kB. The system writes several of them in one call with half of the work.
constexpr std::size_t kBufferBytes = std::size_t{128} << 10U;

bool isNameOfOurs(std::string_view name) {
  const auto work = NameOfWork::parse(name, kPrefix);
  if (!work || work->rest.size() != 1 + kRandomLength + kSuffix.size()) return false;
  if (work->rest.front() != '-' || !work->rest.ends_with(kSuffix)) return false;
  return std::ranges::all_of(work->rest.substr(1, kRandomLength),
                             [](unsigned char c) { return std::isalnum(c) != 0; });
}

// The length of an open file; absent when it was deleted.
std::optional<std::int64_t> lengthOf(const FileDescriptor& file) {
  struct stat status{};
  if (fstat(file.get(), &status) != 0 || status.st_nlink == 0) return std::nullopt;
  return status.st_size;
}

// Locks a file that was just created. False when another process took it for an orphan before it was locked.
// Without locks, as on some network volumes, no process takes a file for an orphan.
bool lockNewFile(const FileDescriptor& file) {
  const bool isTaken = flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  return !isTaken && lengthOf(file);
}

}  // namespace

Result<std::unique_ptr<PartialFile>> PartialFile::create(const Path& folder) {
  for (;;) {
    auto path = joined(folder, fmt::format("{}{}-XXXXXX{}", kPrefix, getpid(), kSuffix));
    FileDescriptor file{mkostemps(path.data(), static_cast<int>(kSuffix.size()), O_CLOEXEC)};
    if (!file) {
      return std::unexpected(
          urlError(URLErrorCode::cannotCreateFile,
                   fmt::format("cannot create a temporary file in {}: {}", folder, errnoText(errno))));
    }
    if (!lockNewFile(file)) continue;
    return std::unique_ptr<PartialFile>{new PartialFile{std::move(file), std::move(path)}};
  }
}

void PartialFile::removeOrphans(const Path& folder) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator{folder, error}) {
    if (!isNameOfOurs(entry.path().filename().string())) continue;
    if (const auto lock = ItemLock::tryTake(entry.path())) unlink(entry.path().c_str());
  }
}

Result<> PartialFile::append(std::string_view bytes) {
  length_ += static_cast<std::int64_t>(bytes.size());
  while (!bytes.empty()) {
    const auto next = bytes.substr(0, kBufferBytes - unwritten_.size());
    unwritten_ += next;
    bytes.remove_prefix(next.size());
    if (unwritten_.size() < kBufferBytes) continue;
    if (auto written = flush(); !written) return handOn(written);
  }
  return {};
}

Result<> PartialFile::flush() {
  if (!writeAll(file_.get(), unwritten_)) {
    return std::unexpected(urlError(URLErrorCode::cannotWriteToFile,
                                    fmt::format("cannot write to {}: {}", path_, errnoText(errno))));
  }
  unwritten_.clear();
  return {};
}

bool PartialFile::goBackTo(std::int64_t length) {
  if (lengthOf(file_).value_or(-1) < length || ftruncate(file_.get(), length) != 0) return false;
  length_ = length;
  return lseek(file_.get(), length, SEEK_SET) == length;
}

void PartialFile::remove() {
  unlink(path_.c_str());
}

}  // namespace installer
