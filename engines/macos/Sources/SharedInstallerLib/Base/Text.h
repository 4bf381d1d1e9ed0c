// Small operations on text that several rooms need.
#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace installer {

// ASCII letters only; all other bytes stay.
std::string lowercased(std::string_view text);

// Without blanks, tabs and line breaks at both ends.
std::string trimmed(std::string_view text);

// Without blanks, those beyond ASCII included, and tabs at both ends. Line breaks stay.
std::string_view withoutBlanks(std::string_view text);

// Bytes of the well-formed sequence of UTF-8 that `bytes`, which isn't empty, begins with; 0 when there is
// none.
std::size_t characterLength(std::string_view bytes);

// Well-formed UTF-8 throughout, empty text included: no overlong forms, no surrogates, nothing cut short.
bool isUTF8(std::string_view bytes);

// `bytes` with U+FFFD for what isn't well-formed, the way events are encoded.
std::string repairedUTF8(std::string_view bytes);

// Counts and cuts by code point, so that no character is split.
std::size_t characterCount(std::string_view text);
std::string_view firstCharacters(std::string_view text, std::size_t count);

// Text from outside, such as a tool's output, fit for one log line: without blanks at the ends,
// line breaks and other control characters as one blank, cut to `count` characters; bytes that aren't UTF-8
// become "?".
std::string oneLine(std::string_view text, std::size_t count = 1000);

// A list as log lines show it: ["a", "b"], and [] when empty.
std::string listText(const std::vector<std::string>& items);

// A number of seconds or per cent as log lines show it: always with a decimal point, "5.0" or "0.25".
std::string doubleText(double value);

// The number that all of `text` is, without blanks or a plus sign; absent when it doesn't fit.
template <std::integral Number>
std::optional<Number> wholeNumber(std::string_view text, int base = 10) {
  Number value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return value;
}

// In lower-case hexadecimal.
std::string hexadecimal(std::span<const std::uint8_t> bytes);

// Taking text apart. Stateless; any thread.
// The pieces between the separators, in order, with empty pieces left out. Views into `text`.
std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator);

}  // namespace installer
