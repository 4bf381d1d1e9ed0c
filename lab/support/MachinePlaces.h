// Where the machine's macOS-shaped places are, as the installer's bundle around this program says.
// The engine's Linux host reads the same file by the same rules.
#pragma once

#include <filesystem>

#include "support/OrReason.h"

namespace lab {

// The folder that holds Applications, Volumes, Library and the temporary directory: the key `root` of
// `linux_host.json`, which stands one folder above this program's own. Fails for a file that can't be used.
OrReason<std::filesystem::path> machineRoot();

// The same for the file at `settings`. A relative root counts from the file's folder. Without the file, or
// without the key, it is ".local/share/Kelo-Desk-Installer" below the home that the user database has.
OrReason<std::filesystem::path> machineRootFrom(const std::filesystem::path& settings);

// What lsregister, open and the engine share, in a machine with this root.
std::filesystem::path applicationRegistryOf(const std::filesystem::path& root);

}  // namespace lab
