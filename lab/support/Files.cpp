#include "support/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Base/POSIX/WholeFile.h"
#include "Base/Text.h"

namespace lab {
namespace {

// Calls `take` with each piece of the file in order.
template <class Take>
OrReason<> readPieces(const fs::path& file, Take take) {
  const installer::FileDescriptor descriptor{open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
  if (!descriptor) return becauseOfErrno(file.string());
  std::string piece(std::size_t{1} << 18U, '\0');
  while (true) {
    const auto count =
        installer::retryInterrupted([&] { return read(descriptor.get(), piece.data(), piece.size()); });
    if (count < 0) return becauseOfErrno(file.string());
    if (count == 0) return {};
    take(std::string_view{piece.data(), static_cast<std::size_t>(count)});
  }
}

}  // namespace

std::string nameOfWork(std::string_view prefix) {
  return fmt::format("{}{}-XXXXXX", prefix, getpid());
}

void clearLeftovers(const fs::path& folder, std::string_view prefix) {
  std::vector<fs::path> leftovers;
  std::error_code ignored;  // the next run tries again
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    const std::string name = entry.path().filename().string();
    const auto work = installer::NameOfWork::parse(name, prefix);
    if (work && !installer::isRunning(work->process)) leftovers.push_back(entry.path());
  }
  for (const fs::path& leftover : leftovers) (void)removeTree(leftover);
}

bool itemExists(const fs::path& path) {
  struct stat status{};
  return lstat(path.c_str(), &status) == 0;
}

OrReason<std::string> readFile(const fs::path& file) {
  std::string bytes;
  const auto read = readPieces(file, [&](std::string_view piece) { bytes += piece; });
  if (!read) return handOn(read);
  return bytes;
}

OrReason<> writeAll(int descriptor, std::string_view bytes) {
  if (!installer::writeAll(descriptor, bytes)) return becauseOfErrno("write");
  return {};
}

OrReason<> writeFile(const fs::path& file, std::string_view bytes) {
  installer::FileReplacement replacement{file};
  const int descriptor = replacement.file().get();
  if (descriptor >= 0 && installer::writeAll(descriptor, bytes) && fchmod(descriptor, 0644) == 0 &&
      replacement.commit())
    return {};
  return becauseOfErrno(file.string());
}

OrReason<> removeTree(const fs::path& path) {
  constexpr int mostDescriptors = 900;  // of the 1024 that a process may have
  if (installer::removeTree(AT_FDCWD, path.c_str(), installer::TreeOwner::ours, mostDescriptors)) return {};
  return becauseOfErrno(path.string());
}

OrReason<std::string> sha256OfFile(const fs::path& file) {
  installer::MessageDigest digest;
  const auto read = readPieces(file, [&](std::string_view piece) { digest.update(piece); });
  if (!read) return handOn(read);
  return installer::hexadecimal(digest.finish());
}

installer::SHA256Bytes sha256(std::string_view text) {
  installer::MessageDigest digest;
  digest.update(text);
  return digest.finish();
}

}  // namespace lab
