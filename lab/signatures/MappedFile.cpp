#include "MappedFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Base/POSIX/FileDescriptor.h"

namespace lab {

namespace {

std::unexpected<Failure> unreadable(const std::filesystem::path& path, const char* why) {
  return std::unexpected(
      Failure{fmt::format("can't read {}: {}", printable(path.string()), why), FailureKind::unreadable});
}

struct OpenFile {
  installer::FileDescriptor descriptor;
  std::size_t size;
};

Outcome<OpenFile> openRegular(const std::filesystem::path& path, Links links) {
  const int noFollow = links == Links::refuse ? O_NOFOLLOW : 0;
  installer::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | noFollow));
  if (!file) return unreadable(path, std::strerror(errno));
  struct stat status{};
  if (::fstat(file.get(), &status) != 0) return unreadable(path, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return unreadable(path, "not a regular file");
  return OpenFile{std::move(file), static_cast<std::size_t>(status.st_size)};
}

}  // namespace

Outcome<MappedFile> MappedFile::open(const std::filesystem::path& path, Links links) {
  const auto file = openRegular(path, links);
  if (!file) return handOn(file);
  const std::size_t size = file->size;
  if (size == 0) return MappedFile(nullptr, 0);
  void* data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file->descriptor.get(), 0);
  if (data == MAP_FAILED) return unreadable(path, std::strerror(errno));
  ::madvise(data, size, MADV_SEQUENTIAL);
  return MappedFile(static_cast<const std::uint8_t*>(data), size);
}

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {
}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

MappedFile::~MappedFile() {
  if (data_ != nullptr) ::munmap(const_cast<std::uint8_t*>(data_), size_);
}

Outcome<Digest> digestOfFile(const std::filesystem::path& path, HashType type, Bytes& piece) {
  const auto file = openRegular(path, Links::refuse);
  if (!file) return handOn(file);
  Hasher hasher(type);
  while (true) {
    const auto count = installer::retryInterrupted(
        [&] { return ::read(file->descriptor.get(), piece.data(), piece.size()); });
    if (count < 0) return unreadable(path, std::strerror(errno));
    if (count == 0) return hasher.finish();
    hasher.update(ByteView(piece).first(static_cast<std::size_t>(count)));
  }
}

}  // namespace lab
