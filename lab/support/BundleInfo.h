// What an application bundle's Info.plist says. Any thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lab {

// The string under `key` of `bundle`/Contents/Info.plist, as the engine reads it and within its bounds;
// absent when anything is missing.
std::optional<std::string> bundleString(const std::filesystem::path& bundle, const std::string& key);

}  // namespace lab
