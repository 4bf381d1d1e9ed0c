#include "Bytes.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fmt/format.h>

#include "Base/Text.h"
#include "support/BigEndian.h"

namespace lab {

namespace {

template <class Integer>
std::optional<Integer> bigEndian(ByteView bytes, std::uint64_t offset) {
  const auto field = slice(bytes, offset, sizeof(Integer));
  return field ? std::optional{loadBig<Integer>(field->data())} : std::nullopt;
}

template <class Integer>
std::optional<Integer> littleEndian(ByteView bytes, std::uint64_t offset) {
  const auto value = bigEndian<Integer>(bytes, offset);
  return value ? std::optional{std::byteswap(*value)} : std::nullopt;
}

}  // namespace

std::optional<ByteView> slice(ByteView bytes, std::uint64_t offset, std::uint64_t length) {
  if (offset > bytes.size() || length > bytes.size() - offset) return std::nullopt;
  return bytes.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
}

std::optional<std::uint32_t> be32(ByteView bytes, std::uint64_t offset) {
  return bigEndian<std::uint32_t>(bytes, offset);
}

std::optional<std::uint64_t> be64(ByteView bytes, std::uint64_t offset) {
  return bigEndian<std::uint64_t>(bytes, offset);
}

std::optional<std::uint32_t> le32(ByteView bytes, std::uint64_t offset) {
  return littleEndian<std::uint32_t>(bytes, offset);
}

std::optional<std::uint64_t> le64(ByteView bytes, std::uint64_t offset) {
  return littleEndian<std::uint64_t>(bytes, offset);
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

std::string paddedText(ByteView field) {
  std::string text = textOf(field);
  return text.substr(0, text.find('\0'));
}

std::optional<Bytes> fromHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const auto byte = installer::wholeNumber<std::uint8_t>(text.substr(i, 2), 16);
    if (!byte) return std::nullopt;
    bytes.push_back(*byte);
  }
  return bytes;
}

std::string printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const auto c = static_cast<std::uint8_t>(text.front());
    const bool isControl = c < 0x20 || c == 0x7F;
    const std::size_t length = isControl ? 0 : installer::characterLength(text);
    if (length == 0) shown += fmt::format("\\x{:02x}", c);
    shown += text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

}  // namespace lab
