#include "Utils/ByteCountFormatter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <string_view>

namespace installer {

namespace {

struct Unit {
  std::string_view name;
  int decimals;
};
constexpr std::array<Unit, 6> units{{{"KB", 0}, {"MB", 1}, {"GB", 2}, {"TB", 2}, {"PB", 2}, {"EB", 2}}};

double rounded(double value, int decimals) {
  const double scale = std::pow(10.0, decimals);
  return std::nearbyint(value * scale) / scale;
}

std::string withoutTrailingZeros(std::string number) {
  if (number.find('.') == std::string::npos) return number;
  number.erase(number.find_last_not_of('0') + 1);
  if (number.back() == '.') number.pop_back();
  return number;
}

}  // namespace

std::string ByteCountFormatter::string(std::int64_t byteCount, CountStyle countStyle) {
  const double base = countStyle == CountStyle::file ? 1000.0 : 1024.0;
  if (byteCount == 0) return "Zero KB";
  if (byteCount == 1 || byteCount == -1) return fmt::format("{} byte", byteCount);

  auto value = static_cast<double>(byteCount);
  if (std::abs(value) < base) return fmt::format("{} bytes", byteCount);

  // A figure that rounds up to a whole next unit is written in that one: 999 999 bytes are 1 MB.
  const auto* unit = units.begin();
  for (value /= base; std::abs(rounded(value, unit->decimals)) >= base && unit + 1 != units.end(); ++unit) {
    value /= base;
  }
  const auto number = fmt::format("{:.{}f}", rounded(value, unit->decimals), unit->decimals);
  return fmt::format("{} {}", withoutTrailingZeros(number), unit->name);
}

}  // namespace installer
