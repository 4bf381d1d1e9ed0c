// Small operations on text. Stateless; any thread.
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

// Changes ASCII letters only.
std::string lowercased(std::string_view text);

// Without blanks, tabs and line breaks at both ends.
std::string trimmed(std::string_view text);

// Without blanks (also those beyond ASCII) and tabs at both ends. Line breaks are kept.
std::string_view withoutBlanks(std::string_view text);

// The length of the well-formed UTF-8 sequence at the start of `bytes`, which isn't empty; 0 when there is
// none.
std::size_t characterLength(std::string_view bytes);

// True for well-formed UTF-8 and for empty text: no overlong forms, no surrogates, no truncated sequences.
bool isUTF8(std::string_view bytes);

// `bytes` with U+FFFD in place of ill-formed sequences, as in events.
std::string repairedUTF8(std::string_view bytes);

// Both count code points, so that no character is split.
std::size_t characterCount(std::string_view text);
std::string_view firstCharacters(std::string_view text, std::size_t count);

// Untrusted text, such as a tool's output, as one log line: trimmed, line breaks and other control characters
// as one blank, cut to `count` characters; bytes that aren't UTF-8 become "?".
std::string oneLine(std::string_view text, std::size_t count = 1000);

// A list in a log line: ["a", "b"], and [] when empty.
std::string listText(const std::vector<std::string>& items);

// A number in a log line, always with a decimal point: "5.0" or "0.25".
std::string doubleText(double value);

// The number that is the whole of `text`, without blanks or a plus sign; absent when `Number` can't hold it.
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

// The pieces between the separators, in order, without empty pieces. Views into `text`.
std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator);

}  // namespace installer
