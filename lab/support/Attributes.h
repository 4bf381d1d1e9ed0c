// Extended attributes under their macOS names: "com.apple.quarantine" lies in Linux's user namespace.
// Any thread. Links aren't followed; a link has no attributes here.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/OrReason.h"

namespace lab {

inline constexpr std::string_view quarantineAttribute = "com.apple.quarantine";

OrReason<std::vector<std::string>> attributeNames(const std::filesystem::path& path);

// Nothing when the attribute isn't there.
OrReason<std::optional<std::string>> attribute(const std::filesystem::path& path, const std::string& name);

OrReason<> setAttribute(const std::filesystem::path& path, const std::string& name, std::string_view value);

// False when the attribute wasn't there.
OrReason<bool> removeAttribute(const std::filesystem::path& path, const std::string& name);

// True for a file system that doesn't keep such attributes at all.
bool keepsNoAttributes(const std::filesystem::path& path);

}  // namespace lab
