#include "Models/JSONReader.h"

#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace installer::JSONReader {

namespace {

std::unexpected<Error> refused(std::string reason) {
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, std::move(reason));
}

// Counts brackets outside strings, and so needs no memory however deep they nest. Text that isn't JSON may be
// miscounted; the parser refuses it anyway.
bool nestsDeeperThan(std::size_t limit, std::string_view bytes) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char c = bytes[i];
    if (inString && c == '\\') {
      ++i;
    } else if (c == '"') {
      inString = !inString;
    } else if (!inString && (c == '[' || c == '{')) {
      if (++depth > limit) return true;
    } else if (!inString && (c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

}  // namespace

Result<Json> parse(std::string_view bytes) {
  if (bytes.size() > maximumBytes) {
    return refused(fmt::format("The JSON text of {} bytes is too long.", bytes.size()));
  }
  if (nestsDeeperThan(maximumDepth, bytes)) {
    return refused(fmt::format("The JSON text nests deeper than {} levels.", maximumDepth));
  }
  try {
    auto value = Json::parse(bytes);
    if (!value.is_structured()) return refused("The JSON text isn't an object or an array.");
    return value;
  } catch (const Json::parse_error& error) {
    return refused(fmt::format("The text isn't valid JSON around byte {}.", error.byte));
  } catch (const Json::exception&) {
    return refused("The JSON text holds a number that is out of range.");
  }
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
