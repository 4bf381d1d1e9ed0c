// Conversions of file names between HFS+ and Linux. Pure functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lab {

// The composed form; absent when the text isn't UTF-8.
std::optional<std::string> composed(std::string_view name);

// A form that is equal for names that a case-insensitive volume treats as the same; absent when not UTF-8.
std::optional<std::string> caseFolded(std::string_view name);

}  // namespace lab
