// 7-Zip's listing of a disk image, read before anything is extracted. Any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/OrReason.h"

namespace lab {

enum class ItemKind { file, folder, link };

struct ListedItem {
  std::string path;  // within the image, "/" between components
  ItemKind kind = ItemKind::file;
  std::uint64_t size = 0;               // in bytes; for a link, of its target's text
  std::optional<unsigned> permissions;  // the nine bits; absent when the volume has none
  std::optional<std::string> target;    // a link's target; absent when the listing has none
};

enum class VolumeFormat { hfs, apfs };

struct VolumeListing {
  VolumeFormat format = VolumeFormat::hfs;
  std::string name;  // of an APFS volume, a plain file name; empty without a usable one
  std::vector<ListedItem> items;
};

struct ListingLimits {
  std::size_t items = 1'000'000;
  std::uint64_t bytes = 0;  // of all files together
};

// Lists a disk image or a bare volume. Blocks. Fails without an HFS+ or APFS volume.
OrReason<VolumeListing> listVolume(const std::filesystem::path& image);

// The same from the text of `7zz l -slt`.
OrReason<VolumeListing> parseListing(std::string_view text);

// Checks that the items are within the limits and can't be written outside their folder: no absolute path, no
// "..", no path twice, nothing below an item that isn't a folder (for example a link).
OrReason<> checkListing(const VolumeListing& listing, const ListingLimits& limits);

// True for an item at the top of a volume that belongs to the system and is never shown: journal, trash.
bool isSystemsOwn(std::string_view name);

// Drops the system's own items and everything below them.
void dropSystemItems(VolumeListing& listing);

}  // namespace lab
