// What this engine says about itself to shells and in log bundles.
#pragma once

#include <cstdint>
#include <string_view>

namespace installer {

extern const std::string_view kEngineVersion;  // of project() in the top CMakeLists.txt
// Rises only when a shell written for the old number could misread the new events.
inline constexpr std::int64_t kEngineProtocolVersion = 1;

}  // namespace installer
