// Where the machine's macOS-shaped places are, as the installer's bundle around this program says.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

// The folder that holds Applications, Volumes, Library and the temporary directory.
// It is the key `root` of `linux_host.json`, which stands one folder above this program's own; a relative
// path counts from that file's folder. Fails, with the reason, when there is no such file or it can't be
// used.
OrReason<std::filesystem::path> machineRoot();

// The same for the file at `settings`.
OrReason<std::filesystem::path> machineRootFrom(const std::filesystem::path& settings);

}  // namespace lab
