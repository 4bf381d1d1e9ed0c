#include "Base/JSONReader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "Base/Text.h"

namespace installer::JSONReader {

namespace {

std::unexpected<Error> refused(std::string reason) {
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, std::move(reason));
}

// The length of the string at the start of `bytes`, with its quotes; all of `bytes` when it doesn't end.
std::size_t stringLength(std::string_view bytes) {
  for (std::size_t i = 1; i < bytes.size(); ++i) {
    if (bytes[i] == '"') return i + 1;
    if (bytes[i] == '\\') ++i;
  }
  return bytes.size();
}

// Counts brackets outside strings, which needs no memory at any depth. The count can be wrong for text that
// isn't JSON; the parser refuses such text.
bool nestsDeeperThan(std::size_t limit, std::string_view bytes) {
  std::size_t depth = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    if (c == '"') i += stringLength(bytes.substr(i)) - 1;
    if ((c == '[' || c == '{') && ++depth > limit) return true;
    if ((c == ']' || c == '}') && depth > 0) --depth;
  }
  return false;
}

// The code unit of the escape at the start of `text`, such as `\u00e9`; 0 when there is none.
unsigned escapedUnit(std::string_view text) {
  constexpr std::size_t length = 6;
  if (text.size() < length || !text.starts_with("\\u")) return 0;
  return wholeNumber<unsigned>(text.substr(2, length - 2), 16).value_or(0);
}

// Doubles the backslash of each escape of half a surrogate pair without the other half, which keeps the
// escape's spelling as text.
std::string withLoneSurrogatesSpelled(std::string_view string) {
  std::string spelled;
  while (!string.empty()) {
    const auto unit = escapedUnit(string);
    const bool isSurrogate = unit >= 0xD800U && unit <= 0xDFFFU;
    const auto next = isSurrogate && unit < 0xDC00U ? escapedUnit(string.substr(6)) : 0;
    const bool isPair = next >= 0xDC00U && next <= 0xDFFFU;
    if (isSurrogate && !isPair) spelled += '\\';
    const auto piece = string.substr(0, isPair ? 12 : string.front() == '\\' ? 2 : 1);
    spelled += piece;
    string.remove_prefix(piece.size());
  }
  return spelled;
}

// The length of the token at the start of `bytes`: a whole string, a whole number, or one character.
std::size_t tokenLength(std::string_view bytes) {
  const char first = bytes.front();
  if (first == '"') return stringLength(bytes);
  if (first != '-' && (first < '0' || first > '9')) return 1;
  return std::min(bytes.find_first_not_of("+-.0123456789eE"), bytes.size());
}

// The parser reports the range before it checks the characters after the number, so the whole token is tested
// first.
bool isNumberOutOfRange(std::string_view token) {
  const std::string text{token};
  char* end = nullptr;
  if (!std::isinf(std::strtod(text.c_str(), &end)) || *end != '\0') return false;
  try {
    return Json::parse(text).is_discarded();
  } catch (const Json::out_of_range&) {
    return true;
  } catch (const Json::exception&) {
    return false;
  }
}

// `token`, or its replacement when no JSON value can hold it: a fraction for a value, because no key accepts
// one; its own spelling for a key. The blanks keep the fraction apart from digits or a sign beside the token.
std::string withoutBadValue(std::string_view token, std::string_view rest) {
  constexpr std::string_view fraction = " 0.5 ";
  if (token.front() != '"') return std::string{isNumberOutOfRange(token) ? fraction : token};
  auto spelled = withLoneSurrogatesSpelled(token);
  const auto next = rest.find_first_not_of(" \t\r\n");
  const bool isKey = next != std::string_view::npos && rest[next] == ':';
  const bool isBadValue = !isKey && spelled != token && Json::accept(spelled);
  return isBadValue ? std::string{fraction} : spelled;
}

// Replaces numbers out of range and strings with half of a surrogate pair. JSON's grammar allows them, but
// the parser refuses the whole text.
std::string withoutBadValues(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const auto token = bytes.substr(0, tokenLength(bytes));
    bytes.remove_prefix(token.size());
    text += withoutBadValue(token, bytes);
  }
  return text;
}

Result<Json> parseStrictly(std::string_view bytes) {
  try {
    auto value = Json::parse(bytes);
    if (!value.is_structured()) return refused("The JSON text isn't an object or an array.");
    return value;
  } catch (const Json::parse_error& error) {
    return refused(fmt::format("The text isn't valid JSON around byte {}.", error.byte));
  } catch (const Json::exception&) {
    return refused("The JSON text contains a number that is out of range.");
  }
}

}  // namespace

Result<Json> parse(std::string_view bytes, BadValues badValues) {
  if (bytes.size() > kMaximumBytes) {
    return refused(fmt::format("The JSON text of {} bytes is too long.", bytes.size()));
  }
  // The parser treats a NUL byte as the end of the text.
  if (const auto nul = bytes.find('\0'); nul != std::string_view::npos) {
    return refused(fmt::format("The text isn't valid JSON around byte {}.", nul + 1));
  }
  if (nestsDeeperThan(kMaximumDepth, bytes)) {
    return refused(fmt::format("The JSON text nests deeper than {} levels.", kMaximumDepth));
  }
  auto strict = parseStrictly(bytes);
  if (strict || badValues == BadValues::refuse) return strict;
  auto tolerant = parseStrictly(withoutBadValues(bytes));
  return tolerant ? std::move(tolerant) : std::move(strict);
}

const Json* member(const Json& value, std::string_view key) {
  if (!value.is_object()) return nullptr;
  const auto entry = value.find(key);
  return entry == value.end() ? nullptr : &*entry;
}

std::optional<std::string> string(const Json& value, std::string_view key) {
  const auto* const entry = member(value, key);
  if (entry == nullptr || !entry->is_string()) return std::nullopt;
  return entry->get<std::string>();
}

std::optional<std::string> nonEmptyString(const Json& value, std::string_view key) {
  auto text = string(value, key);
  if (text && text->empty()) return std::nullopt;
  return text;
}

std::optional<bool> boolean(const Json& value, std::string_view key) {
  const auto* const entry = member(value, key);
  if (entry == nullptr || !entry->is_boolean()) return std::nullopt;
  return entry->get<bool>();
}

std::optional<std::int64_t> integer(const Json& value, std::string_view key) {
  const auto* const entry = member(value, key);
  if (entry == nullptr || !entry->is_number()) return std::nullopt;
  if (entry->is_number_unsigned()) {
    const auto number = entry->get<std::uint64_t>();
    if (number > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) return std::nullopt;
    return static_cast<std::int64_t>(number);
  }
  if (entry->is_number_integer()) return entry->get<std::int64_t>();
  const auto number = entry->get<double>();
  if (number != std::trunc(number) || number < -0x1p63 || number >= 0x1p63) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

std::optional<std::vector<std::string>> strings(const Json& value, std::string_view key) {
  const auto* const entry = member(value, key);
  if (entry == nullptr || !entry->is_array()) return std::nullopt;
  std::vector<std::string> items;
  for (const auto& item : *entry) {
    if (!item.is_string()) return std::nullopt;
    items.push_back(item.get<std::string>());
  }
  return items;
}

std::optional<std::map<std::string, std::string>> stringMap(const Json& value, std::string_view key) {
  const auto* const entry = member(value, key);
  if (entry == nullptr || !entry->is_object()) return std::nullopt;
  std::map<std::string, std::string> items;
  for (const auto& [name, item] : entry->items()) {
    if (!item.is_string()) return std::nullopt;
    items.emplace(name, item.get<std::string>());
  }
  return items;
}

}  // namespace installer::JSONReader
