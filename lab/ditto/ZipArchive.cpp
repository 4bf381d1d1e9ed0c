#include "ditto/ZipArchive.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "Base/POSIX/WholeFile.h"
#include "support/Files.h"
#include "support/Interruption.h"

namespace lab {
namespace {

using Entry = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

class Zip {
 public:
  explicit Zip(int file) : writer_(archive_write_new(), &archive_write_free) {
    archive_write_set_format_zip(writer_.get());
    archive_write_set_options(writer_.get(), "hdrcharset=UTF-8");
    // No padding after the end of the archive.
    archive_write_set_bytes_in_last_block(writer_.get(), 1);
    archive_write_open_fd(writer_.get(), file);
  }

  OrReason<> add(const fs::path& path, const std::string& name) {
    if (interruption() != 0) return because("interrupted");
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) return becauseOfErrno(path.string());
    if (S_ISDIR(status.st_mode)) return addFolder(path, name, status);
    if (S_ISLNK(status.st_mode)) return addLink(path, name, status);
    if (S_ISREG(status.st_mode)) return addFile(path, name, status);
    return because("{}: neither file, folder nor link", path.string());
  }

  // Adds the entries of `folder` below `prefix`, in the order of their names.
  OrReason<> addContent(const fs::path& folder, const std::string& prefix) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) names.push_back(entry.path().filename());
    if (error) return because("{}: {}", folder.string(), error.message());
    std::ranges::sort(names);
    for (const std::string& name : names) {
      const auto added = add(folder / name, prefix + name);
      if (!added) return added;
    }
    return {};
  }

  OrReason<> close() {
    if (archive_write_close(writer_.get()) == ARCHIVE_OK) return {};
    return lastError("archive");
  }

 private:
  Entry header(const std::string& name, const struct stat& status) const {
    Entry entry{archive_entry_new(), &archive_entry_free};
    archive_entry_copy_stat(entry.get(), &status);
    archive_entry_set_pathname_utf8(entry.get(), name.c_str());
    return entry;
  }

  OrReason<> write(const Entry& entry, const fs::path& path) {
    if (archive_write_header(writer_.get(), entry.get()) >= ARCHIVE_WARN) return {};
    return lastError(path.string());
  }

  OrReason<> addFolder(const fs::path& path, const std::string& name, const struct stat& status) {
    const auto written = write(header(name + "/", status), path);
    return written ? addContent(path, name + "/") : written;
  }

  OrReason<> addLink(const fs::path& path, const std::string& name, const struct stat& status) {
    const Entry entry = header(name, status);
    std::error_code error;
    const std::string target = fs::read_symlink(path, error).string();
    if (error) return because("{}: {}", path.string(), error.message());
    archive_entry_set_symlink_utf8(entry.get(), target.c_str());
    return write(entry, path);
  }

  // A file that grows meanwhile is packed with its first length; one that shrinks is a failure.
  OrReason<> addFile(const fs::path& path, const std::string& name, const struct stat& status) {
    const installer::FileDescriptor file{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
    if (!file) return becauseOfErrno(path.string());
    const auto written = write(header(name, status), path);
    if (!written) return written;
    std::string buffer(std::size_t{1} << 18U, '\0');
    for (auto left = static_cast<std::uint64_t>(status.st_size); left > 0;) {
      const ssize_t count = read(file.get(), buffer.data(), std::min<std::uint64_t>(buffer.size(), left));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return becauseOfErrno(path.string());
      if (count == 0) return because("{}: it became shorter while it was packed", path.string());
      if (archive_write_data(writer_.get(), buffer.data(), static_cast<std::size_t>(count)) < 0) {
        return lastError(path.string());
      }
      left -= static_cast<std::uint64_t>(count);
    }
    return {};
  }

  std::unexpected<std::string> lastError(const std::string& what) const {
    const char* text = archive_error_string(writer_.get());
    return because("{}: {}", what, text != nullptr ? text : "it can't be packed");
  }

  std::unique_ptr<archive, decltype(&archive_write_free)> writer_;
};

OrReason<> pack(const fs::path& source, int file, Parent parent) {
  Zip zip{file};
  const bool content = fs::is_directory(source) && parent == Parent::leaveOut;
  const auto added = content ? zip.addContent(source, "") : zip.add(source, source.filename().string());
  return added ? zip.close() : added;
}

}  // namespace

OrReason<> packZip(const fs::path& source, const fs::path& archive, Parent parent) {
  std::error_code error;
  const fs::path from = fs::canonical(source, error);
  if (error) return because("Cannot get the real path for source '{}'", source.string());
  installer::FileReplacement replacement{archive};
  const int file = replacement.file().get();
  if (file < 0) return becauseOfErrno(archive.string());
  const auto packed = pack(from, file, parent);
  if (packed && (fchmod(file, 0644) != 0 || !replacement.commit())) return becauseOfErrno(archive.string());
  return packed;
}

}  // namespace lab
