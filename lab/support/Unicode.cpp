#include "support/Unicode.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <unicase.h>
#include <uninorm.h>

#include "Base/Text.h"

namespace lab {
namespace {

const std::uint8_t* unitsOf(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

bool isASCII(char unit) {
  return static_cast<unsigned char>(unit) < 0x80;
}

// Copies and frees a buffer that libunistring allocated.
std::optional<std::string> adopt(std::uint8_t* units, std::size_t length) {
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> owner{units, &std::free};
  if (!owner) return std::nullopt;
  return std::string{reinterpret_cast<const char*>(units), length};
}

}  // namespace

std::optional<std::string> composed(std::string_view name) {
  if (std::ranges::all_of(name, isASCII)) return std::string{name};
  if (!installer::isUTF8(name)) return std::nullopt;
  std::size_t length = 0;
  std::uint8_t* units = u8_normalize(UNINORM_NFC, unitsOf(name), name.size(), nullptr, &length);
  return adopt(units, length);
}

std::optional<std::string> caseFolded(std::string_view name) {
  if (!installer::isUTF8(name)) return std::nullopt;
  if (name.empty()) return std::string{};
  std::size_t length = 0;
  std::uint8_t* units = u8_casefold(unitsOf(name), name.size(), nullptr, UNINORM_NFD, nullptr, &length);
  return adopt(units, length);
}

}  // namespace lab
