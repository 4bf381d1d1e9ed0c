// The engine's only reader of JSON: strict, bounded, and without exceptions. Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Error.h"

namespace installer {

// The value type of property lists, configuration and metadata. Declared only: a source that reads a value
// includes <nlohmann/json.hpp>. Headers don't, because that costs seconds of compile time per source.
using Json = nlohmann::json;

}  // namespace installer

namespace installer::JSONReader {

// Deeper nesting and longer texts are refused before the parser runs.
inline constexpr std::size_t kMaximumDepth = 512;
inline constexpr std::size_t kMaximumBytes = std::size_t{16} << 20U;

// The treatment of a value that JSON's grammar allows and a `Json` can't hold: a number beyond the range of a
// double, a string with half of a surrogate pair.
enum class BadValues {
  countAsWrongType,  // only this value is lost
  refuse,            // the whole text
};

// Parses an object or an array, in UTF-8 without comments, trailing commas or text after the value. The last
// value of a repeated key is used.
[[nodiscard]] Result<Json> parse(std::string_view bytes, BadValues badValues = BadValues::countAsWrongType);

// Null when `value` isn't an object or has no such key.
const Json* member(const Json& value, std::string_view key);

// The value under `key`; absent when it is missing or of another JSON type.
std::optional<std::string> string(const Json& value, std::string_view key);
// The same; an empty string counts as missing.
std::optional<std::string> nonEmptyString(const Json& value, std::string_view key);
std::optional<bool> boolean(const Json& value, std::string_view key);
// A number without a fractional part that fits in 64 bits.
std::optional<std::int64_t> integer(const Json& value, std::string_view key);
// Also absent when an element or value isn't a string.
std::optional<std::vector<std::string>> strings(const Json& value, std::string_view key);
std::optional<std::map<std::string, std::string>> stringMap(const Json& value, std::string_view key);

}  // namespace installer::JSONReader
