#include "Platform/POSIX/PropertyListBounds.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

namespace installer {

namespace {

constexpr std::size_t trailerSize = 32;
constexpr std::uint64_t unbounded = std::numeric_limits<std::uint64_t>::max();

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = (value << 8U) | static_cast<std::uint8_t>(byte);
  return value;
}

// The offset table and the references of a binary property list, every access tested.
class BinaryOutline {
 public:
  explicit BinaryOutline(std::string_view bytes) : bytes_{bytes} {}

  bool isBounded() {
    if (!readTrailer()) return false;
    weights_.assign(objects_, 0);
    return weigh(top_, 0) <= PropertyListBounds::values;
  }

 private:
  static constexpr std::uint64_t beingWeighed = unbounded;

  std::string_view bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;             // where the offset table begins: the end of the objects
  std::vector<std::uint64_t> weights_;  // values below each object, itself included; 0 before it is known

  bool readTrailer() {
    if (bytes_.size() < kBinaryPropertyListMagic.size() + trailerSize) return false;
    const auto trailer = bytes_.substr(bytes_.size() - trailerSize);
    offsetSize_ = static_cast<std::uint8_t>(trailer[6]);
    referenceSize_ = static_cast<std::uint8_t>(trailer[7]);
    objects_ = bigEndian(trailer.substr(8, 8));
    top_ = bigEndian(trailer.substr(16, 8));
    table_ = bigEndian(trailer.substr(24, 8));
    const std::uint64_t room = bytes_.size() - trailerSize;
    const auto isSize = [](std::size_t size) { return size >= 1 && size <= 8; };
    return isSize(offsetSize_) && isSize(referenceSize_) && objects_ > 0 && top_ < objects_ &&
           table_ >= kBinaryPropertyListMagic.size() && table_ < room &&
           objects_ <= (room - table_) / offsetSize_;
  }

  // `count` bytes at `offset` of the objects; absent when they aren't all there.
  std::optional<std::string_view> at(std::uint64_t offset, std::uint64_t count) const {
    if (offset > table_ || count > table_ - offset) return std::nullopt;
    return bytes_.substr(offset, count);
  }

  struct Container {
    std::uint64_t references = 0;  // offset of the first
    std::uint64_t count = 0;
  };

  // The references of the object at `offset`; none for a plain value; absent when it is malformed.
  std::optional<Container> containerAt(std::uint64_t offset) const {
    const auto marker = at(offset, 1);
    if (!marker) return std::nullopt;
    const unsigned kind = static_cast<std::uint8_t>((*marker)[0]) >> 4U;
    std::uint64_t count = static_cast<std::uint8_t>((*marker)[0]) & 0x0FU;
    const bool isDictionary = kind == 0xD;
    if (!isDictionary && kind != 0xA && kind != 0xB && kind != 0xC) return Container{};
    std::uint64_t first = offset + 1;
    if (count == 0x0F) {
      const auto sizeMarker = at(first, 1);
      if (!sizeMarker) return std::nullopt;
      const std::size_t width = std::size_t{1} << (static_cast<std::uint8_t>((*sizeMarker)[0]) & 0x0FU);
      const auto size = at(first + 1, width);
      if (!size || width > 8) return std::nullopt;
      count = bigEndian(*size);
      first += 1 + width;
    }
    if (count > objects_ * 2 + table_) return std::nullopt;  // more than there is room for, and no overflow
    if (isDictionary) count *= 2;
    if (!at(first, count * referenceSize_)) return std::nullopt;
    return Container{first, count};
  }

  // How many values the object stands for; `unbounded` when it is malformed, part of a cycle or too deep.
  std::uint64_t weigh(std::uint64_t object, std::size_t depth) {
    if (object >= objects_ || depth > PropertyListBounds::depth) return unbounded;
    if (weights_[object] != 0) return weights_[object];
    const auto container = containerAt(bigEndian(bytes_.substr(table_ + object * offsetSize_, offsetSize_)));
    if (!container) return unbounded;
    weights_[object] = beingWeighed;
    std::uint64_t sum = 1;
    for (std::uint64_t index = 0; index < container->count; ++index) {
      const auto reference = bytes_.substr(container->references + index * referenceSize_, referenceSize_);
      const std::uint64_t weight = weigh(bigEndian(reference), depth + 1);
      if (weight > PropertyListBounds::values) return unbounded;
      sum += weight;
      if (sum > PropertyListBounds::values) return unbounded;
    }
    return weights_[object] = sum;
  }
};

std::size_t occurrences(std::string_view text, std::string_view word) {
  std::size_t count = 0;
  for (auto at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) ++count;
  return count;
}

}  // namespace

bool isBoundedBinaryPropertyList(std::string_view bytes) {
  return BinaryOutline{bytes}.isBounded();
}

bool isBoundedXMLPropertyList(std::string_view bytes) {
  return occurrences(bytes, "<dict") + occurrences(bytes, "<array") <= PropertyListBounds::containers;
}

}  // namespace installer
