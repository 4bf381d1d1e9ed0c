#include "support/Files.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <vector>

#include "openssl/evp.h"

#include "support/Descriptor.h"

namespace lab {
namespace {

using DigestContext = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

DigestContext sha256() {
  DigestContext context{EVP_MD_CTX_new(), &EVP_MD_CTX_free};
  EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
  return context;
}

std::string finish(EVP_MD_CTX* context) {
  std::array<unsigned char, 32> digest{};
  EVP_DigestFinal_ex(context, digest.data(), nullptr);
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

// Calls `take` with one piece of the file after the other.
template <class Take>
OrReason<> readPieces(const fs::path& file, Take take) {
  const Descriptor descriptor{open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
  if (!descriptor) return becauseOfErrno(file.string());
  std::string piece(std::size_t{1} << 18U, '\0');
  while (true) {
    const ssize_t count = read(descriptor.number(), piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return becauseOfErrno(file.string());
    if (count == 0) return {};
    take(std::string_view{piece.data(), static_cast<std::size_t>(count)});
  }
}

// Lets the owner list and change every folder of the tree.
void openUp(const fs::path& folder) {
  chmod(folder.c_str(), 0700);
  std::error_code ignored;  // a folder that can't be listed shows up as a failed removal
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    if (entry.symlink_status().type() == fs::file_type::directory) openUp(entry.path());
  }
}

// The process that `name` belongs to; 0 when it isn't a name of unfinished work.
pid_t ownerOf(const std::string& name, std::string_view prefix) {
  pid_t owner = 0;
  if (name.starts_with(prefix))
    std::from_chars(name.data() + prefix.size(), name.data() + name.size(), owner);
  return owner;
}

}  // namespace

std::string nameOfWork(std::string_view prefix) {
  return fmt::format("{}{}-XXXXXX", prefix, getpid());
}

void clearLeftovers(const fs::path& folder, std::string_view prefix) {
  std::vector<fs::path> leftovers;
  std::error_code ignored;  // the next run tries again
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    const pid_t owner = ownerOf(entry.path().filename().string(), prefix);
    if (owner > 0 && kill(owner, 0) != 0 && errno == ESRCH) leftovers.push_back(entry.path());
  }
  for (const fs::path& leftover : leftovers) (void)removeTree(leftover);
}

bool stands(const fs::path& path) {
  struct stat status{};
  return lstat(path.c_str(), &status) == 0;
}

OrReason<std::string> readFile(const fs::path& file) {
  std::string bytes;
  const auto read = readPieces(file, [&](std::string_view piece) { bytes += piece; });
  if (!read) return std::unexpected(read.error());
  return bytes;
}

OrReason<> writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return becauseOfErrno("write");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

OrReason<> writeFile(const fs::path& file, std::string_view bytes) {
  std::string sibling = (file.parent_path() / ("." + file.filename().string() + ".XXXXXX")).string();
  const Descriptor descriptor{mkostemp(sibling.data(), O_CLOEXEC)};
  if (!descriptor) return becauseOfErrno(sibling);
  auto written = writeAll(descriptor.number(), bytes);
  if (written && (fchmod(descriptor.number(), 0644) != 0 || rename(sibling.c_str(), file.c_str()) != 0)) {
    written = becauseOfErrno(file.string());
  }
  if (!written) unlink(sibling.c_str());
  return written;
}

OrReason<> removeTree(const fs::path& path) {
  std::error_code error;
  if (fs::symlink_status(path, error).type() == fs::file_type::directory) openUp(path);
  fs::remove_all(path, error);
  if (error) return because("{}: {}", path.string(), error.message());
  return {};
}

OrReason<std::string> sha256OfFile(const fs::path& file) {
  const DigestContext context = sha256();
  const auto read = readPieces(
      file, [&](std::string_view piece) { EVP_DigestUpdate(context.get(), piece.data(), piece.size()); });
  if (!read) return std::unexpected(read.error());
  std::string text;
  for (const char byte : finish(context.get()))
    text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return text;
}

std::string sha256Prefix(std::string_view text, std::size_t count) {
  const DigestContext context = sha256();
  EVP_DigestUpdate(context.get(), text.data(), text.size());
  return finish(context.get()).substr(0, count);
}

}  // namespace lab
