#include "Utils/VersionComparison.h"

#include <cstdint>

#include "Base/Text.h"

namespace installer {

namespace {

// One optional sign and decimal digits that fit in 64 bits; anything else is 0.
std::int64_t componentValue(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
  }
  return wholeNumber<std::int64_t>(text).value_or(0);
}

// Moves the part before the first point from `rest` to `component`. False when it was the last part.
bool takeComponent(std::string_view& rest, std::string_view& component) {
  const auto point = rest.find('.');
  component = rest.substr(0, point);
  if (point == std::string_view::npos) return false;
  rest.remove_prefix(point + 1);
  return true;
}

}  // namespace

ComparisonResult compareVersion(std::string_view version, std::string_view to) {
  for (bool bothHaveMore = true; bothHaveMore;) {
    std::string_view left;
    std::string_view right;
    const bool leftHasMore = takeComponent(version, left);
    const bool rightHasMore = takeComponent(to, right);
    const auto leftValue = componentValue(left);
    const auto rightValue = componentValue(right);
    if (leftValue < rightValue) return ComparisonResult::ascending;
    if (leftValue > rightValue) return ComparisonResult::descending;
    bothHaveMore = leftHasMore && rightHasMore;
  }
  return ComparisonResult::same;
}

}  // namespace installer
