// Bounded reads of untrusted bytes. Pure functions; any thread. A read outside the view is an absent value,
// never undefined behaviour.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/BigEndian.h"

namespace lab {

using ByteView = std::span<const std::uint8_t>;

// The `length` bytes from `offset`; absent when they go beyond `bytes`.
std::optional<ByteView> slice(ByteView bytes, std::uint64_t offset, std::uint64_t length);

std::optional<std::uint32_t> be32(ByteView bytes, std::uint64_t offset);
std::optional<std::uint64_t> be64(ByteView bytes, std::uint64_t offset);
std::optional<std::uint32_t> le32(ByteView bytes, std::uint64_t offset);
std::optional<std::uint64_t> le64(ByteView bytes, std::uint64_t offset);

// The text from `offset` up to its zero byte; absent when there is no zero byte.
std::optional<std::string> zeroTerminated(ByteView bytes, std::uint64_t offset);

bool allZero(ByteView bytes);
bool equal(ByteView left, ByteView right);
bool startsWith(ByteView bytes, ByteView prefix);

ByteView viewOf(std::string_view text);
Bytes copyOf(ByteView bytes);
std::string textOf(ByteView bytes);
// The text in a field of fixed length, without the zero bytes of its padding.
std::string paddedText(ByteView field);

// The bytes of a hexadecimal text; absent when its length is odd or a character isn't a digit.
std::optional<Bytes> fromHex(std::string_view text);

// The text with control characters and bytes that aren't UTF-8 shown as \xNN, for a terminal.
std::string printable(std::string_view text);

}  // namespace lab
