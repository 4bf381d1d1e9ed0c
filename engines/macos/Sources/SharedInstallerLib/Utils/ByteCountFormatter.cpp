#include "Utils/ByteCountFormatter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <string>
#include <string_view>

namespace installer {

namespace {

struct Unit {
  std::string_view name;
  int decimals;
};
constexpr std::array<Unit, 6> kUnits{{{"KB", 0}, {"MB", 1}, {"GB", 2}, {"TB", 2}, {"PB", 2}, {"EB", 2}}};

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

// `number` has at most four digits before the point.
std::string withThousandsComma(std::string number) {
  const auto start = number.find_first_of("0123456789");
  const auto digits = std::min(number.find('.'), number.size()) - start;
  if (digits > 3) number.insert(start + digits - 3, ",");
  return number;
}

}  // namespace

std::string ByteCountFormatter::string(std::int64_t byteCount, CountStyle countStyle) {
  const double base = countStyle == CountStyle::file ? 1000.0 : 1024.0;
  if (byteCount == 0) return "Zero KB";
  if (byteCount == 1 || byteCount == -1) return fmt::format("{} byte", byteCount);

  auto value = static_cast<double>(byteCount);
  if (std::abs(value) < base) return withThousandsComma(std::to_string(byteCount)) + " bytes";

  // A figure that rounds up to one of the next unit is written in that unit: 999 999 bytes are 1 MB.
  const auto* unit = kUnits.begin();
  for (value /= base; std::abs(rounded(value, unit->decimals)) >= base && unit + 1 != kUnits.end(); ++unit) {
    value /= base;
  }
  const auto number = fmt::format("{:.{}f}", rounded(value, unit->decimals), unit->decimals);
  return fmt::format("{} {}", withThousandsComma(withoutTrailingZeros(number)), unit->name);
}

}  // namespace installer
