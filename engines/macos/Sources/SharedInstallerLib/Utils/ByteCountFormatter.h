// Sizes for people, in the words of the platform: "Zero KB", "1 byte", "512 KB", "1.2 MB".
#pragma once

#include <cstdint>
#include <string>

namespace installer {

namespace ByteCountFormatter {

enum class CountStyle {
  file,   // 1 KB is 1000 bytes
  binary  // 1 KB is 1024 bytes
};

// Bytes and KB without decimals, MB with at most one, GB and above with at most two.
std::string string(std::int64_t byteCount, CountStyle countStyle);

}  // namespace ByteCountFormatter

}  // namespace installer
