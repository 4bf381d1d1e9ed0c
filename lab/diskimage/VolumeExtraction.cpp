#include "diskimage/VolumeExtraction.h"

#include <algorithm>
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

OrReason<> unpack(const fs::path& image, const fs::path& into) {
  // -snld20 keeps links with any target, -sns- leaves out attributes in streams.
  const auto finished = runToEnd(
      {"7zz", "x", "-snld20", "-sns-", "-bd", "-y", "-p", "-o" + into.string(), "--", image.string()});
  if (!finished) return handOn(finished);
  if (finished->status == 0) return {};
  return because("corrupt image ({})", lastLine(finished->diagnostics + finished->output));
}

// The targets of the links without a target in the listing, one after the other, in 7-Zip's order.
OrReason<std::string> linkTexts(const fs::path& image, const VolumeListing& listing,
                                const fs::path& scratch) {
  std::string names;  // in quotation marks, because 7-Zip trims blanks
  for (const ListedItem& item : listing.items) {
    if (item.kind == ItemKind::link && !item.target) names += fmt::format("\"{}\"\n", item.path);
  }
  if (names.empty()) return std::string{};
  const fs::path file = scratch / "links";
  const auto written = writeFile(file, names);
  if (!written) return handOn(written);
  const auto finished =
      runToEnd({"7zz", "x", "-so", "-spd", "-scsUTF-8", "-p", "-i@" + file.string(), "--", image.string()});
  if (!finished) return handOn(finished);
  if (finished->status != 0) return because("corrupt image ({})", lastLine(finished->diagnostics));
  return finished->output;
}

OrReason<> readLinks(const fs::path& image, VolumeListing& listing, const fs::path& scratch) {
  const auto texts = linkTexts(image, listing, scratch);
  if (!texts) return handOn(texts);
  std::size_t at = 0;
  for (ListedItem& item : listing.items) {
    if (item.kind != ItemKind::link || item.target) continue;
    item.target = texts->substr(std::min(at, texts->size()), item.size);
    at += item.size;
  }
  if (at != texts->size()) return because("corrupt image: its links can't be read");
  return {};
}

// Recreates every link of the listing below `unpacked`: 7-Zip changes some targets and drops some links.
OrReason<> remakeLinks(const fs::path& unpacked, const VolumeListing& listing) {
  for (const ListedItem& item : listing.items) {
    if (item.kind != ItemKind::link) continue;
    const fs::path link = unpacked / item.path;
    const std::string& target = *item.target;
    if (target.contains('\0')) return because("{}: its target contains a NUL", item.path);
    unlink(link.c_str());  // fails for a dropped link
    if (symlink(target.c_str(), link.c_str()) != 0) return becauseOfErrno(item.path);
  }
  return {};
}

// Undoes the changes of the extraction, from the leaves to the root, and compares the result with the
// listing.
class Restoration {
 public:
  Restoration(fs::path unpacked, const VolumeListing& listing)
      : unpacked_(std::move(unpacked)), format_(listing.format), quarantine_(quarantineValue()) {
    for (const ListedItem& item : listing.items) missing_[composed(item.path).value_or("")] = item;
  }

  // Restores the volume's root and returns its path, which may have changed.
  OrReason<fs::path> restoreVolume(const fs::path& root) {
    OrReason<fs::path> restored = root;
    if (format_ == VolumeFormat::hfs) restored = restore(root);
    if (format_ == VolumeFormat::apfs) {
      const auto below = restoreFolder(root);
      if (!below) return handOn(below);
    }
    if (restored && !missing_.empty())
      return because("{} wasn't extracted from the image", missing_.begin()->first);
    return restored;
  }

 private:
  static std::string quarantineValue() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return fmt::format("0083;{:08x};Kelo-Desk-Installer;",
                       std::chrono::duration_cast<std::chrono::seconds>(now).count());
  }

  OrReason<> restoreFolder(const fs::path& folder) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(folder, error)) entries.push_back(entry.path());
    if (error) return because("{}: {}", folder.string(), error.message());
    for (const fs::path& entry : entries) {
      if (interruption() != 0) return because("interrupted");
      const auto restored = restore(entry);
      if (!restored) return handOn(restored);
    }
    return {};
  }

  OrReason<fs::path> composeName(const fs::path& path) const {
    const auto name = composed(path.filename().string());
    if (!name) return because("{}: a name isn't UTF-8", path.parent_path().string());
    if (format_ != VolumeFormat::hfs || *name == path.filename()) return path;
    const fs::path renamed = path.parent_path() / *name;
    if (itemExists(renamed)) return because("{}: two names are equal when composed", renamed.string());
    if (rename(path.c_str(), renamed.c_str()) != 0) return becauseOfErrno(path.string());
    return renamed;
  }

  // Removes the item extracted as `path` from the missing items.
  OrReason<ListedItem> meet(const fs::path& path) {
    const auto listed = missing_.extract(composed(path.lexically_relative(unpacked_).string()).value_or(""));
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) return becauseOfErrno(path.string());
    const mode_t type = status.st_mode & S_IFMT;
    const bool isListed = listed && ((type == S_IFDIR && listed.mapped().kind == ItemKind::folder) ||
                                     (type == S_IFLNK && listed.mapped().kind == ItemKind::link) ||
                                     (type == S_IFREG && listed.mapped().kind == ItemKind::file &&
                                      static_cast<std::uint64_t>(status.st_size) == listed.mapped().size));
    if (!isListed)
      return because("the extracted {} doesn't match the image's list", path.filename().string());
    return listed.mapped();
  }

  OrReason<fs::path> restore(const fs::path& entry) {
    const auto path = composeName(entry);
    if (!path) return path;
    const auto item = meet(*path);
    if (!item) return handOn(item);
    if (item->kind == ItemKind::link) return path;
    if (item->kind == ItemKind::folder) {
      const auto restored = restoreFolder(*path);
      if (!restored) return handOn(restored);
    }
    const auto marked = mark(*path, item->permissions.value_or(item->kind == ItemKind::folder ? 0755 : 0644));
    if (!marked) return handOn(marked);
    return path;
  }

  // Sets the mode from the volume, and the quarantine attribute.
  OrReason<> mark(const fs::path& path, mode_t mode) const {
    chmod(path.c_str(), mode | 0200U);
    const auto marked = setAttribute(path, std::string{kQuarantineAttribute}, quarantine_);
    if (chmod(path.c_str(), mode) != 0) return becauseOfErrno(path.string());
    if (!marked && !keepsNoAttributes(path)) return marked;
    return {};
  }

  fs::path unpacked_;
  VolumeFormat format_;
  std::string quarantine_;
  std::unordered_map<std::string, ListedItem> missing_;  // by composed path
};

// The extraction of an HFS+ volume makes a folder with its name, that of an APFS volume doesn't.
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
    if (isSystemsOwn(entry.path().filename().string())) dropped.push_back(entry.path());
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
  if (!checked) return handOn(checked);
  dropSystemItems(*listing);
  const auto links = readLinks(image, *listing, scratch);
  if (!links) return handOn(links);
  return listing;
}

}  // namespace

OrReason<ExtractedVolume> extractVolume(const fs::path& image, const fs::path& scratch) {
  const auto listing = inspect(image, scratch);
  if (!listing) return handOn(listing);
  const fs::path unpacked = fs::canonical(scratch) / "unpacked";
  fs::create_directory(unpacked);
  const auto done = unpack(image, unpacked);
  if (!done) return handOn(done);
  const auto root = volumeRoot(unpacked, listing->format);
  if (!root) return handOn(root);
  auto prepared = dropPrivateFolders(*root);
  if (prepared) prepared = remakeLinks(unpacked, *listing);
  if (!prepared) return handOn(prepared);
  const auto restored = Restoration{unpacked, *listing}.restoreVolume(*root);
  if (!restored) return handOn(restored);
  std::string name = restored->filename().string();
  if (listing->format == VolumeFormat::apfs)
    name = listing->name.empty() ? image.stem().string() : listing->name;
  return ExtractedVolume{name, listing->format, *restored};
}

}  // namespace lab
