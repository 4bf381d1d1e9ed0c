// The one way by which JSON from outside enters the engine: strict, bounded, and without exceptions.
// Stateless; any thread.
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

// The JSON-like value that property lists, configuration and metadata are read into. Declared only: a source
// that looks into a value includes <nlohmann/json.hpp>. Headers don't, because that costs seconds a source.
using Json = nlohmann::json;

}  // namespace installer

namespace installer::JSONReader {

// Deeper nesting and longer texts are refused before anything is built from them.
inline constexpr std::size_t maximumDepth = 512;
inline constexpr std::size_t maximumBytes = std::size_t{16} << 20U;

// What becomes of a value that JSON's grammar allows and that can't be held: a number beyond the range of a
// double, a string with half of a surrogate pair.
enum class BadValues {
  countAsWrongType,  // the value is lost and nothing else
  refuse,            // with the whole text
};

// An object or an array, from UTF-8 without comments, trailing commas or anything after the value.
// The last value of a repeated key counts.
[[nodiscard]] Result<Json> parse(std::string_view bytes, BadValues badValues = BadValues::countAsWrongType);

// Null when `value` isn't an object or has no such key.
const Json* member(const Json& value, std::string_view key);

// The value under `key` in the asked type; absent when it is missing or of any other JSON type.
std::optional<std::string> string(const Json& value, std::string_view key);
// The same; an empty string counts as missing.
std::optional<std::string> nonEmptyString(const Json& value, std::string_view key);
std::optional<bool> boolean(const Json& value, std::string_view key);
// A number without a fractional part that fits in 64 bits.
std::optional<std::int64_t> integer(const Json& value, std::string_view key);
// Absent also when any element or value isn't a string.
std::optional<std::vector<std::string>> strings(const Json& value, std::string_view key);
std::optional<std::map<std::string, std::string>> stringMap(const Json& value, std::string_view key);

}  // namespace installer::JSONReader
