// Attaches and detaches disk images below a machine's Volumes folder. Blocks.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "hdiutil/MountTable.h"
#include "support/OrReason.h"

namespace lab {

enum class Checksums { verify, skip };

// Tells the caller of the mount.
using Tell = std::function<OrReason<>(const Mount&)>;

// Opens the image at a mount point named after its volume, "{name} 1" and so on when that is taken; an image
// that is attached already keeps its mount. The mount point appears at once and whole; a failure, or a
// request to stop, leaves nothing new. No other process learns of a mount before `tell` has succeeded. The
// mount point takes no new entries; what is in it has the owner and modes that it would have on a mounted
// image.
OrReason<> attach(const MountTable& table, const std::filesystem::path& image, Checksums checksums,
                  const Tell& tell);

// Detaches what is mounted at `mountPoint`, or is that disk ("/dev/disk4", "disk4s2"), even if it is in use.
OrReason<Mount> detach(const MountTable& table, const std::string& mountPointOrDisk);

}  // namespace lab
