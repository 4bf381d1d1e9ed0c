#include "Base/POSIX/PropertyListBounds.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace installer {

namespace {

constexpr std::size_t kTrailerSize = 32;
constexpr std::uint64_t kUnbounded = std::numeric_limits<std::uint64_t>::max();

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = (value << 8U) | static_cast<std::uint8_t>(byte);
  return value;
}

// The offset table and the references of a binary property list. Every access is checked.
class BinaryOutline {
 public:
  BinaryOutline(std::string_view bytes, std::size_t mostValues) : bytes_{bytes}, mostValues_{mostValues} {}

  bool isBounded() {
    if (!readTrailer()) return false;
    weights_.assign(objects_, 0);
    return weigh(top_, 0) <= mostValues_;
  }

 private:
  static constexpr std::uint64_t kBeingWeighed = kUnbounded;

  std::string_view bytes_;
  std::size_t mostValues_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;             // the offset of the offset table, the end of the objects
  std::vector<std::uint64_t> weights_;  // values below each object, with itself; 0 until computed

  bool readTrailer() {
    if (bytes_.size() < kBinaryPropertyListMagic.size() + kTrailerSize) return false;
    const auto trailer = bytes_.substr(bytes_.size() - kTrailerSize);
    offsetSize_ = static_cast<std::uint8_t>(trailer[6]);
    referenceSize_ = static_cast<std::uint8_t>(trailer[7]);
    objects_ = bigEndian(trailer.substr(8, 8));
    top_ = bigEndian(trailer.substr(16, 8));
    table_ = bigEndian(trailer.substr(24, 8));
    const std::uint64_t room = bytes_.size() - kTrailerSize;
    const auto isSize = [](std::size_t size) { return size >= 1 && size <= 8; };
    return isSize(offsetSize_) && isSize(referenceSize_) && objects_ > 0 && top_ < objects_ &&
           table_ >= kBinaryPropertyListMagic.size() && table_ < room &&
           objects_ <= (room - table_) / offsetSize_;
  }

  // `count` bytes at `offset` of the objects; absent when they go beyond the end.
  std::optional<std::string_view> at(std::uint64_t offset, std::uint64_t count) const {
    if (offset > table_ || count > table_ - offset) return std::nullopt;
    return bytes_.substr(offset, count);
  }

  // The object's kind, and its bytes or references after the marker and the count.
  struct Extent {
    unsigned kind = 0;
    std::uint64_t first = 0;
    std::uint64_t count = 0;
  };

  // Absent when the object is malformed.
  std::optional<Extent> extentOf(std::uint64_t object) const {
    const auto offset = bigEndian(bytes_.substr(table_ + object * offsetSize_, offsetSize_));
    const auto marker = at(offset, 1);
    if (!marker) return std::nullopt;
    const unsigned byte = static_cast<std::uint8_t>((*marker)[0]);
    Extent extent{byte >> 4U, offset + 1, byte & 0x0FU};
    if (extent.kind < 4 || extent.count != 0x0F) return extent;
    const auto sizeMarker = at(extent.first, 1);
    if (!sizeMarker) return std::nullopt;
    const std::size_t width = std::size_t{1} << (static_cast<std::uint8_t>((*sizeMarker)[0]) & 0x0FU);
    const auto size = at(extent.first + 1, width);
    if (!size || width > 8) return std::nullopt;
    extent.count = bigEndian(*size);
    extent.first += 1 + width;
    if (extent.count > objects_ * 2 + table_)
      return std::nullopt;  // more than can fit; also prevents an overflow
    return extent;
  }

  // The references of the object; none for a plain value; absent when it is malformed.
  std::optional<Extent> containerOf(std::uint64_t object) const {
    auto extent = extentOf(object);
    if (!extent) return std::nullopt;
    const bool isDictionary = extent->kind == 0xD;
    if (!isDictionary && extent->kind != 0xA && extent->kind != 0xB && extent->kind != 0xC) return Extent{};
    if (isDictionary) extent->count *= 2;
    if (!at(extent->first, extent->count * referenceSize_)) return std::nullopt;
    return extent;
  }

  // Text of ASCII or UTF-16 without a NUL. The library ends the process at a key with one.
  bool isKey(std::uint64_t object) const {
    const auto extent = object < objects_ ? extentOf(object) : std::nullopt;
    if (!extent || (extent->kind != 5 && extent->kind != 6)) return false;
    const std::size_t width = extent->kind == 6 ? 2 : 1;
    const auto text = at(extent->first, extent->count * width);
    for (std::size_t index = 0; text && index < text->size(); index += width) {
      if (bigEndian(text->substr(index, width)) == 0) return false;
    }
    return text.has_value();
  }

  // The number of values that the object expands to; `kUnbounded` when it is malformed, in a cycle or too
  // deep.
  std::uint64_t weigh(std::uint64_t object, std::size_t depth) {
    if (object >= objects_ || depth > PropertyListBounds::kDepth) return kUnbounded;
    if (weights_[object] != 0) return weights_[object];
    const auto container = containerOf(object);
    if (!container) return kUnbounded;
    const std::uint64_t keys = container->kind == 0xD ? container->count / 2 : 0;
    weights_[object] = kBeingWeighed;
    std::uint64_t sum = 1;
    for (std::uint64_t index = 0; index < container->count; ++index) {
      const auto item = bigEndian(bytes_.substr(container->first + index * referenceSize_, referenceSize_));
      if (index < keys && !isKey(item)) return kUnbounded;
      const std::uint64_t weight = weigh(item, depth + 1);
      if (weight > mostValues_) return kUnbounded;
      sum += weight;
      if (sum > mostValues_) return kUnbounded;
    }
    return weights_[object] = sum;
  }
};

bool isBlank(char character) {
  return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

bool isLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

// The nesting, the number and the texts of the elements in an XML list, from its tags.
class XMLOutline {
 public:
  XMLOutline(std::string_view text, std::size_t mostValues) : rest_{text}, mostValues_{mostValues} {}

  bool isBounded() {
    for (;;) {
      const auto text = rest_.substr(0, rest_.find('<'));
      moves_ += text.size() * static_cast<std::uint64_t>(std::ranges::count(text, '&'));
      if (moves_ > PropertyListBounds::kMoves) return false;
      if (!skipPast("<")) return true;
      if (!takeMarkup()) return false;
    }
  }

 private:
  std::string_view rest_;
  std::size_t mostValues_;
  std::size_t depth_ = 0;
  std::size_t values_ = 0;
  std::uint64_t moves_ = 0;
  std::array<std::size_t, PropertyListBounds::kDepth + 1> keys_{};  // of each open container

  bool skipPast(std::string_view end) {
    const auto at = rest_.find(end);
    if (at == std::string_view::npos) return false;
    rest_.remove_prefix(at + end.size());
    return true;
  }

  bool take(std::string_view start) {
    if (!rest_.starts_with(start)) return false;
    rest_.remove_prefix(start.size());
    return true;
  }

  // Reads the markup after a "<".
  bool takeMarkup() {
    if (take("?")) return skipPast("?>");
    if (take("!--")) return skipPast("-->");
    if (take("![CDATA[")) return skipPast("]]>");
    const auto end = rest_.find('>');
    if (end == std::string_view::npos) return false;
    auto tag = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    // The head of the list. Only here may quotes contain a bracket, because no element is open yet.
    if (values_ == 0 && (tag.starts_with('!') || tag.starts_with("plist"))) return !tag.contains('[');
    return takeElement(tag);
  }

  bool takeElement(std::string_view tag) {
    const bool closes = tag.starts_with('/');
    if (closes) tag.remove_prefix(1);
    const bool isEmpty = tag.ends_with('/');
    if (isEmpty) tag.remove_suffix(1);
    while (!tag.empty() && isBlank(tag.back())) tag.remove_suffix(1);
    if (!std::ranges::all_of(tag, isLetter)) return false;
    if (!closes && ++values_ > mostValues_) return false;
    if (tag == "key") return closes || ++keys_[depth_] <= PropertyListBounds::kKeys;
    if (tag != "dict" && tag != "array") return true;
    if (closes) return depth_-- > 0;
    if (isEmpty) return true;
    if (++depth_ > PropertyListBounds::kDepth) return false;
    keys_[depth_] = 0;
    return true;
  }
};

// UTF-16 text with a byte-order mark, with "?" for what isn't ASCII; other text unchanged.
std::string narrowed(std::string_view bytes) {
  const bool isBigEndian = bytes.starts_with("\xFE\xFF");
  if (!isBigEndian && !bytes.starts_with("\xFF\xFE")) return std::string{bytes};
  std::string text;
  for (std::size_t at = 2; at + 1 < bytes.size(); at += 2) {
    const char low = bytes[at + (isBigEndian ? 1 : 0)];
    const char high = bytes[at + (isBigEndian ? 0 : 1)];
    text += high == 0 && static_cast<std::uint8_t>(low) < 0x80 ? low : '?';
  }
  return text;
}

// True when the head of the text names an encoding in which ASCII characters are other bytes than in `text`.
bool isInAnotherEncoding(std::string_view text) {
  if (!text.starts_with("<?xml")) return false;
  const auto head = text.substr(0, text.find("?>"));
  const auto at = head.find("encoding");
  if (at == std::string_view::npos) return false;
  std::string name;
  for (const char character : head.substr(at + 8)) {
    if (isLetter(character) || (character >= '0' && character <= '9'))
      name += static_cast<char>(character | 0x20);
  }
  return !name.starts_with("utf8") && !name.starts_with("utf16") && !name.starts_with("usascii") &&
         !name.starts_with("iso8859");
}

}  // namespace

bool isBoundedBinaryPropertyList(std::string_view bytes, std::size_t mostValues) {
  return BinaryOutline{bytes, mostValues}.isBounded();
}

bool isBoundedXMLPropertyList(std::string_view bytes, std::size_t mostValues) {
  const std::string text = narrowed(bytes);
  const auto first = std::ranges::find_if_not(text, isBlank);
  if (first == text.end() || *first != '<' || text.contains('\0') || isInAnotherEncoding(text)) return false;
  return XMLOutline{text, mostValues}.isBounded();
}

}  // namespace installer
