#include "diskimage/SourceFolder.h"

#include <unordered_map>

#include "diskimage/VolumeListing.h"
#include "support/Unicode.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// A volume's listed items, by composed path.
using Items = std::unordered_map<std::string, ListedItem>;

OrReason<ListedItem> describe(const fs::directory_entry& entry) {
  std::error_code error;
  switch (entry.symlink_status().type()) {
    case fs::file_type::regular: return ListedItem{{}, ItemKind::file, entry.file_size(error), {}, {}};
    case fs::file_type::directory: return ListedItem{{}, ItemKind::folder, 0, {}, {}};
    case fs::file_type::symlink:
      return ListedItem{{}, ItemKind::link, fs::read_symlink(entry, error).string().size(), {}, {}};
    default: return because("{}: an image can contain only files, folders and links", entry.path().string());
  }
}

// Removes the items that it finds from `items`.
OrReason<> checkFolder(const fs::path& folder, const std::string& path, Items& items) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    const auto item = describe(entry);
    if (!item) return handOn(item);
    const std::string within = path + "/" + entry.path().filename().string();
    const auto kept = items.extract(composed(within).value_or(""));
    if (!kept || kept.mapped().kind != item->kind || kept.mapped().size != item->size)
      return because("{}: an HFS+ volume can't hold it under this name", entry.path().string());
    if (item->kind != ItemKind::folder) continue;
    auto below = checkFolder(entry.path(), within, items);
    if (!below) return below;
  }
  if (error) return because("{}: {}", folder.string(), error.message());
  return {};
}

}  // namespace

OrReason<> checkKept(const fs::path& folder, const fs::path& volumeFile, const std::string& volumeName) {
  auto listing = listVolume(volumeFile);
  if (!listing) return handOn(listing);
  dropSystemItems(*listing);
  Items items;
  for (ListedItem& item : listing->items) {
    std::string path = composed(item.path).value_or("");
    if (!items.emplace(std::move(path), std::move(item)).second)
      return because("two names are equal on HFS+");
  }
  if (items.erase(composed(volumeName).value_or("")) == 0)
    return because("\"{}\" can't be a volume's name", volumeName);
  auto checked = checkFolder(folder, volumeName, items);
  if (!checked || items.empty()) return checked;
  return because("the volume holds {}, which isn't in the folder", items.begin()->first);
}

}  // namespace lab
