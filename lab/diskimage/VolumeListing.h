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

struct ListedItem {
  std::string path;  // within the image, "/" between components
  bool isFolder = false;
  std::uint64_t size = 0;
  std::optional<unsigned> permissions;  // the nine bits; absent where the volume tells none
};

enum class VolumeFormat { hfs, apfs };

struct VolumeListing {
  VolumeFormat format = VolumeFormat::hfs;
  std::vector<ListedItem> items;
};

struct ListingLimits {
  std::size_t items = 1'000'000;
  std::uint64_t bytes = 0;  // of all files together
};

// Blocks. Fails for an image without an HFS+ or APFS volume.
OrReason<VolumeListing> listVolume(const std::filesystem::path& image);

// The same from the text of `7zz l -slt`.
OrReason<VolumeListing> parseListing(std::string_view text);

// Whether the items can be written into a folder without leaving it and within the limits: no absolute path,
// no
// "..", nothing twice, nothing below an item that isn't a folder (a link, say).
OrReason<> checkListing(const VolumeListing& listing, const ListingLimits& limits);

}  // namespace lab
