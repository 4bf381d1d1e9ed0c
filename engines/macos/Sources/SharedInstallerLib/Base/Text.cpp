#include "Base/Text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"

namespace installer {

namespace {

bool isContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// True for a character of C0 or C1, and for DEL.
bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20U || first == 0x7FU;
  return first == 0xC2U && static_cast<unsigned char>(character[1]) < 0xA0U;
}

// All blanks of Unicode, and the tab.
constexpr std::array<std::string_view, 18> kBlanks{
    " ",      "\t",     "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
    "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u202F", "\u205F", "\u3000"};

// The length in bytes of the first blank for which `fits` is true; 0 when there is none.
std::size_t blankLength(auto fits) {
  const auto* const blank = std::ranges::find_if(kBlanks, fits);
  return blank == kBlanks.end() ? 0 : blank->size();
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string lower{text};
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::string trimmed(std::string_view text) {
  static constexpr std::string_view kASCIIBlanks = " \t\r\n\v\f";
  const auto first = text.find_first_not_of(kASCIIBlanks);
  if (first == std::string_view::npos) return {};
  return std::string{text.substr(first, text.find_last_not_of(kASCIIBlanks) - first + 1)};
}

std::string_view withoutBlanks(std::string_view text) {
  const auto leads = [&text](std::string_view blank) { return text.starts_with(blank); };
  const auto trails = [&text](std::string_view blank) { return text.ends_with(blank); };
  while (const auto length = blankLength(leads)) text.remove_prefix(length);
  while (const auto length = blankLength(trails)) text.remove_suffix(length);
  return text;
}

std::size_t characterLength(std::string_view bytes) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const auto lead = at(0);
  if (lead < 0x80U) return 1;
  const std::size_t length = lead >= 0xF0U ? 4 : lead >= 0xE0U ? 3 : 2;
  if (lead < 0xC2U || lead > 0xF4U || bytes.size() < length) return 0;
  if (!std::ranges::all_of(bytes.substr(1, length - 1), isContinuation)) return 0;
  const bool isOverlong = (lead == 0xE0U && at(1) < 0xA0U) || (lead == 0xF0U && at(1) < 0x90U);
  const bool isSurrogate = lead == 0xEDU && at(1) > 0x9FU;
  const bool isBeyondUnicode = lead == 0xF4U && at(1) > 0x8FU;
  return isOverlong || isSurrogate || isBeyondUnicode ? 0 : length;
}

bool isUTF8(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto length = characterLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string repairedUTF8(std::string_view bytes) {
  if (isUTF8(bytes)) return std::string{bytes};
  return Json::parse(Json(bytes).dump(-1, ' ', false, Json::error_handler_t::replace)).get<std::string>();
}

std::size_t characterCount(std::string_view text) {
  return text.size() - static_cast<std::size_t>(std::ranges::count_if(text, isContinuation));
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::size_t end = 0;
  while (end < text.size() && (count > 0 || isContinuation(text[end]))) {
    if (!isContinuation(text[end])) --count;
    ++end;
  }
  return text.substr(0, end);
}

std::string oneLine(std::string_view text, std::size_t count) {
  std::string line;
  while (!text.empty()) {
    const auto length = characterLength(text);
    const auto character = length == 0 ? std::string_view{"?"} : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
    if (character != " " && !isControl(character)) {
      line += character;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  const auto whole = trimmed(line);
  return std::string{firstCharacters(whole, count)};
}

std::string listText(const std::vector<std::string>& items) {
  std::string text = "[";
  for (const auto& item : items) {
    if (text.size() > 1) text += ", ";
    text += '"';
    for (const char c : item) {
      if (c == '"' || c == '\\') text += '\\';
      text += c;
    }
    text += '"';
  }
  return text + "]";
}

std::string doubleText(double value) {
  auto text = fmt::format("{}", value);
  const bool isWhole = std::ranges::all_of(text, [](char c) { return c == '-' || (c >= '0' && c <= '9'); });
  return isWhole ? text + ".0" : text;
}

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
  return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    const auto end = std::min(text.find(separator), text.size());
    if (end > 0) pieces.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return pieces;
}

}  // namespace installer
