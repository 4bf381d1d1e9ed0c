// Attaches and detaches disk images below a machine's Volumes folder. Blocks.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "hdiutil/MountTable.h"
#include "support/OrReason.h"

namespace lab {

struct AttachOptions {
  bool verifiesChecksums = true;
  bool hidesVolume = false;  // by the sticky bit of the mount point
};

// Reports the mount to the caller.
using Tell = std::function<OrReason<>(const Mount&)>;

// Opens the image at a mount point named after its volume, or "{name} 1" and so on when that exists; an
// attached image keeps its mount. The mount point appears in one step; a failure, or a request to stop,
// leaves nothing new. No other process sees a mount before `tell` has succeeded. The mount point is
// read-only; its entries have the owner and modes of a mounted image.
OrReason<> attach(const MountTable& table, const std::filesystem::path& image, const AttachOptions& options,
                  const Tell& tell);

// Detaches the image at that mount point or with that disk ("/dev/disk4", "disk4s2"), even if it is in use.
OrReason<Mount> detach(const MountTable& table, const std::string& mountPointOrDisk);

}  // namespace lab
