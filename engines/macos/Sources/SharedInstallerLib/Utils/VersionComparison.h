// The one ordering of version strings. Stateless; never fails.
#pragma once

#include <string_view>

namespace installer {

enum class ComparisonResult { ascending = -1, same = 0, descending = 1 };

// Ascending when `version` is older than `to`. Compares the components that both sides have, so "1.2" and
// "1.2.1" are the same. A component that isn't a decimal 64-bit integer counts as 0.
ComparisonResult compareVersion(std::string_view version, std::string_view to);

}  // namespace installer
