// The Info.plist of an application bundle. Any thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lab {

// The string under `key` of `bundle`/Contents/Info.plist, read with the engine's reader and bounds; absent
// when the file or the key is missing.
std::optional<std::string> bundleString(const std::filesystem::path& bundle, const std::string& key);

}  // namespace lab
