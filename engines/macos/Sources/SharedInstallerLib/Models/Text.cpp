#include "Models/Text.h"

#include <algorithm>
#include <fmt/format.h>

namespace installer {

std::string lowercased(std::string_view text) {
  std::string lower{text};
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::string trimmed(std::string_view text) {
  static constexpr std::string_view blanks = " \t\r\n\v\f";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string{text.substr(first, text.find_last_not_of(blanks) - first + 1)};
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

}  // namespace installer
