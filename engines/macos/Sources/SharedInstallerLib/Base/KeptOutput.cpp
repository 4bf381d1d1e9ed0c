#include "Base/KeptOutput.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace installer {

namespace {

constexpr std::size_t kHalf = KeptOutput::kLongest / 2;

}  // namespace

void KeptOutput::append(std::string_view bytes) {
  const std::size_t toFirst = std::min(bytes.size(), kHalf - first_.size());
  first_ += bytes.substr(0, toFirst);
  for (bytes.remove_prefix(toFirst); !bytes.empty();) {
    const auto piece = bytes.substr(0, kHalf);
    last_ += piece;
    bytes.remove_prefix(piece.size());
    if (last_.size() >= 2 * kHalf) cutLast();
  }
}

std::string KeptOutput::take() {
  cutLast();
  std::string text = std::exchange(first_, {});
  if (leftOut_ > 0) text += fmt::format("\n[{} bytes omitted]\n", std::exchange(leftOut_, 0));
  return text += std::exchange(last_, {});
}

void KeptOutput::cutLast() {
  if (last_.size() <= kHalf) return;
  leftOut_ += last_.size() - kHalf;
  last_.erase(0, last_.size() - kHalf);
}

}  // namespace installer
