// What 7-Zip says is in a disk image, before anything of it touches the disk. Any thread.
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
  std::uint64_t size = 0;               // in bytes; of a link, its text's
  std::optional<unsigned> permissions;  // the nine bits; absent where the volume has none
  std::optional<std::string> target;    // a link's text; absent where the listing doesn't show it
};

enum class VolumeFormat { hfs, apfs };

struct VolumeListing {
  VolumeFormat format = VolumeFormat::hfs;
  std::string name;  // of an APFS volume, as a plain file name; empty when it has none such
  std::vector<ListedItem> items;
};

struct ListingLimits {
  std::size_t items = 1'000'000;
  std::uint64_t bytes = 0;  // of all files together
};

// Of a disk image, or of a bare volume. Blocks. Fails without an HFS+ or APFS volume.
OrReason<VolumeListing> listVolume(const std::filesystem::path& image);

// The same from the text of `7zz l -slt`.
OrReason<VolumeListing> parseListing(std::string_view text);

// Whether the items can be written into a folder without leaving it and within the limits: no absolute path,
// no "..", nothing twice, nothing below an item that isn't a folder (a link, say).
OrReason<> checkListing(const VolumeListing& listing, const ListingLimits& limits);

// True for an item at the top of a volume that the system keeps for itself and never shows: journal, trash.
bool isSystemsOwn(std::string_view name);

// Drops the system's own items and everything below them.
void dropSystemItems(VolumeListing& listing);

}  // namespace lab
