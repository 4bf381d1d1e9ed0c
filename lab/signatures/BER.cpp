#include "BER.h"

#include <algorithm>
#include <cctype>

namespace lab {

namespace {

constexpr int kDeepestElement = 32;
// A signature with a timestamp and five certificates has about a thousand.
constexpr std::size_t kMostElements = 20000;

class ElementReader {
 public:
  explicit ElementReader(ByteView bytes) : bytes_(bytes) {}

  Outcome<BERElement> element(std::size_t end, int depth) {
    if (depth > kDeepestElement) return refuse("signed data is nested too deeply");
    if (++count_ > kMostElements) return refuse("signed data has too many elements");
    const std::size_t begin = at_;
    BERElement element;
    if (!readTag(element, end)) return refuse("signed data is truncated");
    const auto length = readLength(element, end);
    if (!length) return refuse("signed data has a malformed length");
    const std::size_t contentBegin = at_;
    const std::size_t contentEnd = element.indefinite ? end : at_ + *length;
    if (element.constructed) {
      if (auto read = readChildren(element, contentEnd, depth); !read) return handOn(read);
    } else {
      at_ = contentEnd;
    }
    const std::size_t endMark = element.indefinite ? 2 : 0;
    element.content = bytes_.subspan(contentBegin, at_ - endMark - contentBegin);
    element.raw = bytes_.subspan(begin, at_ - begin);
    return element;
  }

 private:
  bool readTag(BERElement& element, std::size_t end) {
    if (at_ >= end) return false;
    const std::uint8_t lead = bytes_[at_++];
    element.tagClass = static_cast<BERClass>(lead >> 6U);
    element.constructed = (lead & 0x20U) != 0;
    element.tag = lead & 0x1FU;
    // Signed data has no tags of more than one byte.
    return element.tag != 0x1F;
  }

  std::optional<std::size_t> readLength(BERElement& element, std::size_t end) {
    if (at_ >= end) return std::nullopt;
    const std::uint8_t lead = bytes_[at_++];
    if (lead == 0x80) {
      element.indefinite = true;
      return element.constructed ? std::optional<std::size_t>(0) : std::nullopt;
    }
    std::uint64_t length = lead;
    if (lead > 0x80) {
      const std::size_t count = lead & 0x7FU;
      if (count > 4 || count > end - at_) return std::nullopt;
      length = 0;
      for (std::size_t i = 0; i < count; ++i) length = length << 8U | bytes_[at_++];
    }
    if (length > end - at_) return std::nullopt;
    return static_cast<std::size_t>(length);
  }

  Outcome<void> readChildren(BERElement& parent, std::size_t end, int depth) {
    while (parent.indefinite || at_ < end) {
      if (parent.indefinite && end - at_ >= 2 && bytes_[at_] == 0 && bytes_[at_ + 1] == 0) {
        at_ += 2;
        return {};
      }
      auto child = element(end, depth + 1);
      if (!child) return handOn(child);
      parent.children.push_back(std::move(*child));
    }
    return {};
  }

  ByteView bytes_;
  std::size_t at_ = 0;
  std::size_t count_ = 0;
};

// The value of `count` digits of `text`; the caller has checked that they are digits.
int digits(std::string_view text, std::size_t from, std::size_t count) {
  int value = 0;
  for (const char c : text.substr(from, count)) value = value * 10 + (c - '0');
  return value;
}

}  // namespace

Outcome<BERElement> readBER(ByteView bytes) {
  return ElementReader(bytes).element(bytes.size(), 0);
}

std::optional<std::string> objectIdentifierText(ByteView content) {
  if (content.empty() || content.size() > 64 || (content.back() & 0x80U) != 0) return std::nullopt;
  std::string text;
  std::uint64_t arc = 0;
  for (const std::uint8_t byte : content) {
    if (arc > UINT64_MAX >> 8U) return std::nullopt;
    arc = arc << 7U | (byte & 0x7FU);
    if ((byte & 0x80U) != 0) continue;
    if (text.empty()) {
      const std::uint64_t first = std::min<std::uint64_t>(arc / 40, 2);
      text = fmt::format("{}.{}", first, arc - first * 40);
    } else {
      text += fmt::format(".{}", arc);
    }
    arc = 0;
  }
  return text;
}

std::string objectIdentifierOf(const BERElement* element) {
  if (element == nullptr || !element->is(kBERObjectIdentifier) || element->constructed) return {};
  return objectIdentifierText(element->content).value_or("");
}

std::optional<Bytes> octetsOf(const BERElement& element) {
  if (!element.constructed) return copyOf(element.content);
  Bytes joined;
  for (const BERElement& piece : element.children) {
    const auto octets = piece.is(kBEROctetString) ? octetsOf(piece) : std::nullopt;
    if (!octets) return std::nullopt;
    joined.insert(joined.end(), octets->begin(), octets->end());
  }
  return joined;
}

std::optional<std::chrono::sys_seconds> timeOf(const BERElement& element) {
  const bool generalized = element.is(kBERGeneralizedTime);
  if (element.constructed || (!generalized && !element.is(kBERUTCTime))) return std::nullopt;
  const std::string text = textOf(element.content);
  const std::size_t yearDigits = generalized ? 4 : 2;
  const std::size_t fixed = yearDigits + 10;
  if (text.size() <= fixed || text.size() > 40 || text.back() != 'Z') return std::nullopt;
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (!std::ranges::all_of(text.substr(0, fixed), isDigit)) return std::nullopt;
  const std::string fraction = text.substr(fixed, text.size() - fixed - 1);
  if (!fraction.empty() && (!generalized || fraction.size() < 2 || fraction[0] != '.' ||
                            !std::ranges::all_of(fraction.substr(1), isDigit))) {
    return std::nullopt;
  }
  int year = digits(text, 0, yearDigits);
  if (!generalized) year += year < 50 ? 2000 : 1900;
  const auto at = [&](int field) {
    return digits(text, yearDigits + static_cast<std::size_t>(field) * 2, 2);
  };
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(at(0))),
                                         std::chrono::day(static_cast<unsigned>(at(1)))};
  if (!date.ok() || at(2) > 23 || at(3) > 59 || at(4) > 60) return std::nullopt;
  return std::chrono::sys_days(date) + std::chrono::hours(at(2)) + std::chrono::minutes(at(3)) +
         std::chrono::seconds(at(4));
}

}  // namespace lab
