#include "diskimage/VolumeExtraction.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

#include "support/Attributes.h"
#include "support/ChildProcess.h"
#include "support/Files.h"
#include "support/Interruption.h"
#include "support/Unicode.h"

namespace lab {
namespace {

// What the system keeps for itself at the top of a volume.
constexpr std::array<std::string_view, 4> privateNames{"[HFS+ Private Data]", ".HFS+ Private Directory Data",
                                                       ".Trashes", ".fseventsd"};

bool isPrivate(const std::string& name) {
  return std::ranges::any_of(privateNames, [&](std::string_view known) { return name.starts_with(known); });
}

OrReason<> unpack(const fs::path& image, const fs::path& into) {
  // -snld20 keeps links that point anywhere, -sns- leaves attributes in streams out.
  const auto finished = runToEnd(
      {"7zz", "x", "-snld20", "-sns-", "-bd", "-y", "-p", "-o" + into.string(), "--", image.string()});
  if (!finished) return std::unexpected(finished.error());
  if (finished->status == 0) return {};
  return because("corrupt image ({})", lastLine(finished->diagnostics + finished->output));
}

// Puts right what the extraction changed, from the leaves to the root.
class Restoration {
 public:
  Restoration(std::string prefix, const VolumeListing& listing)
      : prefix_(std::move(prefix)), format_(listing.format), quarantine_(quarantineValue()) {
    for (const ListedItem& item : listing.items) {
      if (item.isFolder && item.permissions)
        folderModes_[composed(item.path).value_or("")] = *item.permissions;
    }
  }

  OrReason<> restoreFolder(const fs::path& folder) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(folder, error)) entries.push_back(entry.path());
    if (error) return because("{}: {}", folder.string(), error.message());
    for (const fs::path& entry : entries) {
      if (interruption() != 0) return because("interrupted");
      const auto restored = restore(entry);
      if (!restored) return restored;
    }
    return {};
  }

  OrReason<fs::path> composeName(const fs::path& path) const {
    const auto name = composed(path.filename().string());
    if (!name) return because("{}: a name isn't UTF-8", path.parent_path().string());
    if (format_ != VolumeFormat::hfs || *name == path.filename()) return path;
    const fs::path renamed = path.parent_path() / *name;
    if (stands(renamed)) return because("{}: two names are one when composed", renamed.string());
    if (rename(path.c_str(), renamed.c_str()) != 0) return becauseOfErrno(path.string());
    return renamed;
  }

  // Modes without the set-id bits, and the mark of something that came from elsewhere.
  OrReason<> mark(const fs::path& path) const {
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) return becauseOfErrno(path.string());
    const mode_t mode = status.st_mode & 0777U;
    chmod(path.c_str(), mode | 0200U);
    const auto marked = setAttribute(path, std::string{quarantineAttribute}, quarantine_);
    if (chmod(path.c_str(), mode) != 0) return becauseOfErrno(path.string());
    if (!marked && !keepsNoAttributes(path)) return marked;
    return {};
  }

 private:
  static std::string quarantineValue() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return fmt::format("0083;{:08x};Kelo-Desk-Installer;",
                       std::chrono::duration_cast<std::chrono::seconds>(now).count());
  }

  OrReason<> restore(const fs::path& entry) {
    const auto path = composeName(entry);
    if (!path) return std::unexpected(path.error());
    switch (fs::symlink_status(*path).type()) {
      case fs::file_type::symlink: return restoreLink(*path);
      case fs::file_type::regular: return mark(*path);
      case fs::file_type::directory: break;
      default: return because("{}: neither file, folder nor link", path->string());
    }
    const auto restored = restoreFolder(*path);
    if (!restored) return restored;
    // The extraction gives every folder the usual mode.
    const auto known = folderModes_.find(composed(path->string().substr(prefix_.size() + 1)).value_or(""));
    if (known != folderModes_.end()) chmod(path->c_str(), known->second);
    return mark(*path);
  }

  // Absolute targets come out with the extraction's folder before them.
  OrReason<> restoreLink(const fs::path& link) const {
    std::error_code error;
    const std::string target = fs::read_symlink(link, error).string();
    if (error) return because("{}: {}", link.string(), error.message());
    if (!target.starts_with(prefix_ + "/")) return {};
    if (unlink(link.c_str()) != 0 || symlink(target.substr(prefix_.size()).c_str(), link.c_str()) != 0) {
      return becauseOfErrno(link.string());
    }
    return {};
  }

  std::string prefix_;
  VolumeFormat format_;
  std::string quarantine_;
  std::unordered_map<std::string, unsigned> folderModes_;  // by path within the volume, composed
};

// An HFS+ volume comes out as a folder of its name, an APFS one without any.
OrReason<fs::path> volumeRoot(const fs::path& unpacked, VolumeFormat format) {
  if (format == VolumeFormat::apfs) return unpacked;
  std::vector<fs::path> tops;
  for (const auto& entry : fs::directory_iterator(unpacked)) {
    if (entry.symlink_status().type() == fs::file_type::directory) tops.push_back(entry.path());
  }
  if (tops.size() != 1) return because("no mountable file systems");
  return tops.front();
}

OrReason<> dropPrivateFolders(const fs::path& root) {
  std::vector<fs::path> dropped;
  for (const auto& entry : fs::directory_iterator(root)) {
    if (isPrivate(entry.path().filename().string())) dropped.push_back(entry.path());
  }
  for (const fs::path& path : dropped) {
    const auto removed = removeTree(path);
    if (!removed) return removed;
  }
  return {};
}

OrReason<VolumeListing> inspect(const fs::path& image, const fs::path& scratch) {
  auto listing = listVolume(image);
  if (!listing) return listing;
  std::error_code error;
  ListingLimits limits;
  limits.bytes = fs::space(scratch, error).available;
  const auto checked = checkListing(*listing, limits);
  if (!checked) return std::unexpected(checked.error());
  return listing;
}

}  // namespace

OrReason<ExtractedVolume> extractVolume(const fs::path& image, const fs::path& scratch) {
  const auto listing = inspect(image, scratch);
  if (!listing) return std::unexpected(listing.error());
  const fs::path unpacked = fs::canonical(scratch) / "unpacked";
  fs::create_directory(unpacked);
  const auto done = unpack(image, unpacked);
  if (!done) return std::unexpected(done.error());
  const auto root = volumeRoot(unpacked, listing->format);
  if (!root) return std::unexpected(root.error());
  Restoration restoration{unpacked.string(), *listing};
  auto restored = dropPrivateFolders(*root);
  if (restored) restored = restoration.restoreFolder(*root);
  if (!restored) return std::unexpected(restored.error());
  if (listing->format == VolumeFormat::apfs)
    return ExtractedVolume{image.stem().string(), listing->format, *root};
  const auto named = restoration.composeName(*root);
  if (!named) return std::unexpected(named.error());
  return ExtractedVolume{named->filename().string(), listing->format, *named};
}

}  // namespace lab
