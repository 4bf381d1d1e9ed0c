// Which of the configured base addresses packages come from.
#pragma once

#include <optional>
#include <string_view>

namespace installer {

enum class CDNDataCenter { us, cn, local };

// "us", "cn" or "local": the key in the configuration.
std::string_view rawValue(CDNDataCenter dataCenter);

namespace CDNDataCenters {

// Exact and case-sensitive.
std::optional<CDNDataCenter> fromRawValue(std::string_view text);

}  // namespace CDNDataCenters

}  // namespace installer
