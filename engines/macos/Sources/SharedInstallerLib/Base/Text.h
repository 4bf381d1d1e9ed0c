// Small operations on text that several rooms need.
#pragma once

#include <cstddef>
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

// Taking text apart. Stateless; any thread.
// The pieces between the separators, in order, with empty pieces left out. Views into `text`.
std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator);

}  // namespace installer
