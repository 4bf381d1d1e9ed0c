#include "Platform/Linux/HTTP/PartialFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/FileErrors.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Platform/Linux/HTTP/CurlErrors.h"

namespace installer {

namespace {

// kelo-download-{pid}-{six characters}.part
constexpr std::string_view kPrefix = "kelo-download-";
constexpr std::string_view kSuffix = ".part";
constexpr std::size_t kRandomLength = 6;
// A piece of a body has 16 kB. The system writes several of them in one call with half of the work.
constexpr std::size_t kBufferBytes = std::size_t{128} << 10U;

// The process that made a file of that name; absent for other names.
std::optional<pid_t> makerOf(std::string_view name) {
  const auto work = NameOfWork::parse(name, kPrefix);
  if (!work || work->rest.size() != 1 + kRandomLength + kSuffix.size()) return std::nullopt;
  if (work->rest.front() != '-' || !work->rest.ends_with(kSuffix)) return std::nullopt;
  const bool isPlain = std::ranges::all_of(work->rest.substr(1, kRandomLength),
                                           [](unsigned char c) { return std::isalnum(c) != 0; });
  return isPlain ? std::optional{work->process} : std::nullopt;
}

bool isOurPlainFile(int descriptor, std::int64_t length) {
  struct stat status{};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
         status.st_nlink == 1 && status.st_size >= length;
}

}  // namespace

Result<std::unique_ptr<PartialFile>> PartialFile::create(const Path& folder) {
  auto path = joined(folder, fmt::format("{}{}-XXXXXX{}", kPrefix, getpid(), kSuffix));
  const int descriptor = mkostemps(path.data(), static_cast<int>(kSuffix.size()), O_CLOEXEC);
  if (descriptor < 0) {
    return std::unexpected(
        urlError(URLErrorCode::cannotCreateFile,
                 fmt::format("cannot create a temporary file in {}: {}", folder, errnoText(errno))));
  }
  flock(descriptor, LOCK_EX | LOCK_NB);
  return std::unique_ptr<PartialFile>{new PartialFile{descriptor, std::move(path), 0}};
}

std::unique_ptr<PartialFile> PartialFile::reopen(const Path& folder, const Path& path, std::int64_t length) {
  if (parentFolder(path) != folder || !makerOf(lastPathComponent(path))) return nullptr;
  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return nullptr;
  std::unique_ptr<PartialFile> file{new PartialFile{descriptor, path, length}};
  if (!isOurPlainFile(descriptor, length) || flock(descriptor, LOCK_EX | LOCK_NB) != 0) return nullptr;
  if (ftruncate(descriptor, length) != 0 || lseek(descriptor, length, SEEK_SET) != length) return nullptr;
  return file;
}

void PartialFile::removeOrphans(const Path& folder) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator{folder, error}) {
    const auto maker = makerOf(entry.path().filename().string());
    if (maker && !isRunning(*maker)) unlink(entry.path().c_str());
  }
}

PartialFile::~PartialFile() {
  close(descriptor_);
}

Result<> PartialFile::append(std::string_view bytes) {
  length_ += static_cast<std::int64_t>(bytes.size());
  while (!bytes.empty()) {
    const auto next = bytes.substr(0, kBufferBytes - unwritten_.size());
    unwritten_ += next;
    bytes.remove_prefix(next.size());
    if (unwritten_.size() < kBufferBytes) continue;
    if (auto written = flush(); !written) return written;
  }
  return {};
}

Result<> PartialFile::flush() {
  if (!writeAll(descriptor_, unwritten_)) {
    return std::unexpected(urlError(URLErrorCode::cannotWriteToFile,
                                    fmt::format("cannot write to {}: {}", path_, errnoText(errno))));
  }
  unwritten_.clear();
  return {};
}

void PartialFile::remove() {
  unlink(path_.c_str());
}

}  // namespace installer
