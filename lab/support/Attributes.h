// Extended attributes by their macOS names, in Linux's user namespace. Any thread. Links aren't followed; a
// link has no attributes here.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/OrReason.h"

namespace lab {

inline constexpr std::string_view kQuarantineAttribute = "com.apple.quarantine";

OrReason<std::vector<std::string>> attributeNames(const std::filesystem::path& path);

// Absent when there is no such attribute.
OrReason<std::optional<std::string>> attribute(const std::filesystem::path& path, const std::string& name);

OrReason<> setAttribute(const std::filesystem::path& path, const std::string& name, std::string_view value);

// False when there was no such attribute.
OrReason<bool> removeAttribute(const std::filesystem::path& path, const std::string& name);

// True for a file system without support for such attributes.
bool keepsNoAttributes(const std::filesystem::path& path);

}  // namespace lab
