#include "diskimage/VolumeListing.h"

#include <algorithm>
#include <array>
#include <unordered_map>

#include "Base/Text.h"
#include "support/ChildProcess.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBeginOfItems = "\n----------\n";

// The value of the line "{key} = value"; absent for another line.
std::optional<std::string_view> valueOf(std::string_view line, std::string_view key) {
  if (!line.starts_with(key)) return std::nullopt;
  line.remove_prefix(key.size());
  if (!line.starts_with(" =")) return std::nullopt;
  line.remove_prefix(2);
  if (line.starts_with(' ')) line.remove_prefix(1);
  return line;
}

template <class Use>
void forEachLine(std::string_view text, Use use) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    use(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// The format of the innermost archive, which 7-Zip names last.
OrReason<VolumeFormat> formatIn(std::string_view head) {
  std::string_view type;
  forEachLine(head, [&](std::string_view line) { type = valueOf(line, "Type").value_or(type); });
  if (type == "HFS") return VolumeFormat::hfs;
  if (type == "APFS") return VolumeFormat::apfs;
  return because("no mountable file systems");
}

// "Name = Kelo.apfs" of the innermost archive. An HFS+ volume's name is the first item's instead.
std::string nameIn(std::string_view head) {
  std::string_view name;
  forEachLine(head, [&](std::string_view line) { name = valueOf(line, "Name").value_or(name); });
  if (!name.ends_with(".apfs") || name.contains('/')) return {};
  return std::string{name.substr(0, name.size() - 5)};
}

// The permissions in "drwxr-xr-x"; set-id and sticky letters count as the execute bit that they replace.
// Absent for a mode without a type, which was never set.
std::optional<unsigned> permissionsIn(std::string_view mode) {
  if (mode.size() < 10 || mode[0] == '0') return std::nullopt;
  unsigned bits = 0;
  for (const char letter : mode.substr(1, 9)) {
    const bool set = letter != '-' && letter != 'S' && letter != 'T';
    bits = (bits << 1U) | (set ? 1U : 0U);
  }
  return bits;
}

// Reads one line about the item. APFS volumes have no "Folder" lines, so the mode also sets the kind.
void readLine(ListedItem& item, std::string_view line) {
  if (valueOf(line, "Folder") == "+") item.kind = ItemKind::folder;
  if (const auto size = valueOf(line, "Size"))
    item.size = installer::wholeNumber<std::uint64_t>(*size).value_or(0);
  if (const auto target = valueOf(line, "Symbolic Link"); target && !target->empty()) item.target = *target;
  const auto mode = valueOf(line, "Mode");
  if (!mode) return;
  if (mode->starts_with('d')) item.kind = ItemKind::folder;
  if (mode->starts_with('l')) item.kind = ItemKind::link;
  item.permissions = permissionsIn(*mode);
}

bool staysInside(std::string_view path) {
  if (path.empty()) return false;
  while (true) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    if (component.empty() || component == "." || component == "..") return false;
    if (end == path.size()) return true;
    path.remove_prefix(end + 1);
  }
}

}  // namespace

OrReason<VolumeListing> parseListing(std::string_view text) {
  const std::size_t head = text.find(kBeginOfItems);
  if (head == std::string_view::npos) return because("no mountable file systems");
  const auto format = formatIn(text.substr(0, head));
  if (!format) return handOn(format);
  VolumeListing listing{*format, nameIn(text.substr(0, head)), {}};
  forEachLine(text.substr(head + kBeginOfItems.size()), [&](std::string_view line) {
    if (const auto path = valueOf(line, "Path")) listing.items.emplace_back().path = *path;
    if (!listing.items.empty()) readLine(listing.items.back(), line);
  });
  return listing;
}

OrReason<VolumeListing> listVolume(const std::filesystem::path& image) {
  const auto finished = runToEnd({"7zz", "l", "-slt", "-sns-", "-p", "--", image.string()});
  if (!finished) return handOn(finished);
  if (finished->status != 0) return because("no mountable file systems ({})", lastLine(finished->output));
  return parseListing(finished->output);
}

OrReason<> checkListing(const VolumeListing& listing, const ListingLimits& limits) {
  if (listing.items.size() > limits.items)
    return because("the volume holds more than {} items", limits.items);
  std::unordered_map<std::string_view, ItemKind> kinds;
  std::uint64_t bytes = 0;
  for (const ListedItem& item : listing.items) {
    if (!staysInside(item.path)) return because("the volume has an item with a path outside of it");
    if (!kinds.emplace(item.path, item.kind).second) return because("the volume holds {} twice", item.path);
    if (item.size > limits.bytes - bytes) return because("the volume's files exceed the size limit");
    bytes += item.size;
  }
  for (const ListedItem& item : listing.items) {
    const std::size_t slash = item.path.rfind('/');
    if (slash == std::string::npos) continue;
    const auto parent = kinds.find(std::string_view{item.path}.substr(0, slash));
    if (parent == kinds.end() || parent->second != ItemKind::folder)
      return because("the volume has {}, whose parent isn't a folder", item.path);
  }
  return {};
}

bool isSystemsOwn(std::string_view name) {
  constexpr std::array<std::string_view, 4> names{".Trashes", ".fseventsd", ".journal",
                                                  ".journal_info_block"};
  // The names of the two private folders have control characters.
  return std::ranges::find(names, name) != names.end() || name.starts_with("[HFS+ Private Data]") ||
         name.starts_with(".HFS+ Private Directory Data");
}

void dropSystemItems(VolumeListing& listing) {
  std::erase_if(listing.items, [&](const ListedItem& item) {
    const fs::path path = item.path;
    auto top = path.begin();
    // The volume itself is the first component on HFS+.
    if (listing.format == VolumeFormat::hfs) ++top;
    return top != path.end() && isSystemsOwn(top->string());
  });
}

}  // namespace lab
