#include "Support/SimulatedPropertyList.h"

#include <cstdlib>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <plist/plist.h>

namespace installer::test {

namespace {

constexpr int kMaximumDepth = 128;

struct TooDeep {};

Json valueOf(plist_t node, int depth);

Json dictionary(plist_t node, int depth) {
  Json result = Json::object();
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, decltype(&std::free)> owner{iterator, &std::free};
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    if (item == nullptr) return result;
    const std::unique_ptr<char, decltype(&std::free)> keyOwner{key, &std::free};
    result[key] = valueOf(item, depth + 1);
  }
}

Json integer(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return static_cast<std::int64_t>(value);
}

Json date(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  constexpr std::int64_t kReference = 978307200;  // 2001-01-01T00:00:00Z
  return static_cast<double>(kReference + seconds) + microseconds / 1e6;
}

Json data(plist_t node) {
  std::uint64_t length = 0;
  const char* const bytes = plist_get_data_ptr(node, &length);
  return Json::binary(std::vector<std::uint8_t>(bytes, bytes + length));
}

Json valueOf(plist_t node, int depth) {
  if (depth > kMaximumDepth) throw TooDeep{};
  switch (plist_get_node_type(node)) {
    case PLIST_DICT: return dictionary(node, depth);
    case PLIST_ARRAY: {
      Json result = Json::array();
      for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
        result.push_back(valueOf(plist_array_get_item(node, i), depth + 1));
      }
      return result;
    }
    case PLIST_STRING: {
      std::uint64_t length = 0;
      const char* const text = plist_get_string_ptr(node, &length);
      return std::string{text, length};
    }
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return value != 0;
    }
    case PLIST_UINT: return integer(node);
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return value;
    }
    case PLIST_DATE: return date(node);
    case PLIST_DATA: return data(node);
    default: return nullptr;
  }
}

}  // namespace

Result<Json> SimulatedPropertyList::parse(std::string_view bytes) {
  plist_t root = nullptr;
  if (!bytes.empty()) {
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  }
  const std::unique_ptr<void, decltype(&plist_free)> owner{root, &plist_free};
  constexpr auto kCorrupt = "The data couldn’t be read because it isn’t in the correct format.";
  if (root == nullptr) return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, kCorrupt);
  try {
    return valueOf(root, 0);
  } catch (const TooDeep&) {
    return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, kCorrupt);
  }
}

}  // namespace installer::test
