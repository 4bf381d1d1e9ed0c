// Big-endian integers in byte buffers. The caller checks the bounds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace lab {

using Bytes = std::vector<std::uint8_t>;

template <class Integer>
Integer loadBig(const std::uint8_t* from) {
  static_assert(std::is_unsigned_v<Integer>);
  Integer value = 0;
  for (std::size_t i = 0; i < sizeof(Integer); ++i) value = static_cast<Integer>((value << 8U) | from[i]);
  return value;
}

template <class Integer>
void storeBig(std::uint8_t* to, Integer value) {
  static_assert(std::is_unsigned_v<Integer>);
  for (std::size_t i = sizeof(Integer); i-- > 0; value = static_cast<Integer>(value >> 8U)) {
    to[i] = static_cast<std::uint8_t>(value);
  }
}

}  // namespace lab
