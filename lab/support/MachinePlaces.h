// Where the machine's macOS-shaped places are, as the installer's bundle around this program says.
// The engine's Linux host reads the same file by the same rules.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

// The folder that holds Applications, Volumes, Library and the temporary directory: the key `root` of
// `linux_host.json`, which lies one folder above this program's own. The engine's own reader reads it, so a
// file that the engine refuses is a failure here.
OrReason<std::filesystem::path> machineRoot();

// What lsregister, open and the engine share, in a machine with this root.
std::filesystem::path applicationRegistryOf(const std::filesystem::path& root);

}  // namespace lab
