#include "Bytes.h"

#include <algorithm>
#include <cstring>

namespace lab {

namespace {

template <class Integer, bool bigEndian>
std::optional<Integer> readInteger(ByteView bytes, std::uint64_t offset) {
  const auto field = slice(bytes, offset, sizeof(Integer));
  if (!field) return std::nullopt;
  Integer value = 0;
  for (std::size_t i = 0; i < sizeof(Integer); ++i) {
    const std::size_t from = bigEndian ? i : sizeof(Integer) - 1 - i;
    value = static_cast<Integer>(value << 8U) | (*field)[from];
  }
  return value;
}

std::optional<std::uint8_t> hexDigit(char c) {
  if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
  return std::nullopt;
}

// Length of the well-formed UTF-8 sequence at the head of `text`, or 0.
std::size_t sequenceLength(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  std::size_t length = 0;
  if (lead >= 0xC2 && lead <= 0xDF) length = 2;
  if (lead >= 0xE0 && lead <= 0xEF) length = 3;
  if (lead >= 0xF0 && lead <= 0xF4) length = 4;
  if (length == 0 || text.size() < length) return 0;
  const auto isTail = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
  return std::ranges::all_of(text.substr(1, length - 1), isTail) ? length : 0;
}

}  // namespace

std::optional<ByteView> slice(ByteView bytes, std::uint64_t offset, std::uint64_t length) {
  if (offset > bytes.size() || length > bytes.size() - offset) return std::nullopt;
  return bytes.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
}

std::optional<std::uint32_t> be32(ByteView bytes, std::uint64_t offset) {
  return readInteger<std::uint32_t, true>(bytes, offset);
}

std::optional<std::uint64_t> be64(ByteView bytes, std::uint64_t offset) {
  return readInteger<std::uint64_t, true>(bytes, offset);
}

std::optional<std::uint32_t> le32(ByteView bytes, std::uint64_t offset) {
  return readInteger<std::uint32_t, false>(bytes, offset);
}

std::optional<std::uint64_t> le64(ByteView bytes, std::uint64_t offset) {
  return readInteger<std::uint64_t, false>(bytes, offset);
}

std::optional<std::string> zeroTerminated(ByteView bytes, std::uint64_t offset) {
  if (offset >= bytes.size()) return std::nullopt;
  const auto rest = bytes.subspan(static_cast<std::size_t>(offset));
  const auto end = std::ranges::find(rest, std::uint8_t{0});
  if (end == rest.end()) return std::nullopt;
  return std::string(rest.begin(), end);
}

bool allZero(ByteView bytes) {
  return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; });
}

bool equal(ByteView left, ByteView right) {
  return left.size() == right.size() &&
         (left.empty() || std::memcmp(left.data(), right.data(), left.size()) == 0);
}

bool startsWith(ByteView bytes, ByteView prefix) {
  return bytes.size() >= prefix.size() && equal(bytes.first(prefix.size()), prefix);
}

ByteView viewOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Bytes copyOf(ByteView bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string textOf(ByteView bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string hex(ByteView bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text;
}

std::optional<Bytes> fromHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const auto high = hexDigit(text[i]);
    const auto low = hexDigit(text[i + 1]);
    if (!high || !low) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(*high << 4U | *low));
  }
  return bytes;
}

std::string printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const auto c = static_cast<std::uint8_t>(text.front());
    const std::size_t length = c >= 0x20 && c < 0x7F ? 1 : sequenceLength(text);
    if (length == 0) shown += "\\x" + hex(std::span(&c, 1));
    shown += text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

}  // namespace lab
