#include "Base/POSIX/PropertyListReader.h"

#include <cstdlib>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <plist/plist.h>

#include "Base/Text.h"

namespace installer {

namespace {

using Node = std::unique_ptr<void, decltype(&plist_free)>;
constexpr std::int64_t kSecondsFrom1970To2001 = 978307200;

std::unexpected<Error> corrupt(std::string_view reason) {
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt,
                 fmt::format("The property list can’t be read: {}", reason));
}

std::optional<Json> jsonOf(plist_t node, std::size_t depth);

// Absent for text that isn't UTF-8: it can't be written as JSON.
std::optional<Json> textOf(const char* text, std::uint64_t length) {
  if (text == nullptr || !isUTF8({text, length})) return std::nullopt;
  return std::string{text, length};
}

Json dateOf(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return static_cast<double>(kSecondsFrom1970To2001 + seconds) + microseconds / 1e6;
}

std::optional<Json> dataOf(plist_t node) {
  std::uint64_t length = 0;
  const char* const bytes = plist_get_data_ptr(node, &length);
  if (bytes == nullptr) return Json::binary({});
  return Json::binary({bytes, bytes + length});
}

std::optional<Json> arrayOf(plist_t node, std::size_t depth) {
  Json list = Json::array();
  plist_array_iter position = nullptr;
  plist_array_new_iter(node, &position);
  const std::unique_ptr<void, decltype(&std::free)> owner{position, &std::free};
  for (;;) {
    plist_t item = nullptr;
    plist_array_next_item(node, position, &item);
    if (item == nullptr) return list;
    auto value = jsonOf(item, depth + 1);
    if (!value) return std::nullopt;
    list.push_back(*std::move(value));
  }
}

std::optional<Json> dictionaryOf(plist_t node, std::size_t depth) {
  Json object = Json::object();
  plist_dict_iter position = nullptr;
  plist_dict_new_iter(node, &position);
  const std::unique_ptr<void, decltype(&std::free)> owner{position, &std::free};
  for (;;) {
    char* rawKey = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, position, &rawKey, &item);
    const std::unique_ptr<char, decltype(&std::free)> key{rawKey, &std::free};
    if (item == nullptr) return object;
    auto value = jsonOf(item, depth + 1);
    if (rawKey == nullptr || !isUTF8(rawKey) || !value) return std::nullopt;
    if (!object.emplace(rawKey, *std::move(value)).second) return std::nullopt;
  }
}

std::optional<Json> stringOf(plist_t node) {
  std::uint64_t length = 0;
  const char* const text = plist_get_string_ptr(node, &length);
  return textOf(text, length);
}

Json booleanOf(plist_t node) {
  std::uint8_t value = 0;
  plist_get_bool_val(node, &value);
  return value != 0;
}

Json realOf(plist_t node) {
  double value = 0;
  plist_get_real_val(node, &value);
  return value;
}

Json numberOf(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return static_cast<std::int64_t>(value);
}

// Absent when the node, or one below it, has no counterpart in JSON.
std::optional<Json> jsonOf(plist_t node, std::size_t depth) {
  if (depth > PropertyListBounds::kDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: return booleanOf(node);
    case PLIST_UINT: return numberOf(node);
    case PLIST_REAL: return realOf(node);
    case PLIST_STRING: return stringOf(node);
    case PLIST_ARRAY: return arrayOf(node, depth);
    case PLIST_DICT: return dictionaryOf(node, depth);
    case PLIST_DATE: return dateOf(node);
    case PLIST_DATA: return dataOf(node);
    default: return std::nullopt;
  }
}

Node parsed(std::string_view bytes, std::size_t mostValues) {
  plist_t root = nullptr;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  if (bytes.starts_with(kBinaryPropertyListMagic)) {
    if (isBoundedBinaryPropertyList(bytes, mostValues)) plist_from_bin(bytes.data(), length, &root);
  } else if (isBoundedXMLPropertyList(bytes, mostValues)) {
    plist_from_xml(bytes.data(), length, &root);
  }
  return {root, &plist_free};
}

std::string_view withoutByteOrderMark(std::string_view bytes) {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  if (bytes.starts_with(mark)) bytes.remove_prefix(mark.size());
  return bytes;
}

}  // namespace

Result<Json> readPropertyList(std::string_view bytes, const PropertyListBounds& bounds) {
  bytes = withoutByteOrderMark(bytes);
  if (bytes.empty()) return corrupt("it is empty");
  if (bytes.size() > bounds.bytes) return corrupt("it is too long");
  const Node root = parsed(bytes, bounds.values);
  if (root == nullptr) return corrupt("it is malformed");
  auto value = jsonOf(root.get(), 0);
  if (!value) return corrupt("it contains a repeated key or a value of an unsupported type");
  return *std::move(value);
}

}  // namespace installer
