#include "PropertyList.h"

#include <algorithm>
#include <memory>
#include <plist/plist.h>

#include "Base/POSIX/PropertyListBounds.h"

namespace lab {

namespace {

constexpr int kDeepestContainer = 64;
constexpr std::size_t kLargest = std::size_t{64} << 20U;
// In one dictionary; more than the files of any bundle.
constexpr std::size_t kMostKeys = 250'000;

// Bounds the cost of the XML form before it is parsed: the parser recurses into containers, searches a
// dictionary's keys for every key, and moves the rest of a text at every entity.
class XMLCensus {
 public:
  explicit XMLCensus(std::string_view text) : text_(text), mostMoves_(text.size() * 64 + (1U << 20U)) {}

  bool isBounded() {
    while (true) {
      const auto open = text_.find('<');
      if (open == std::string_view::npos) return true;
      addText(text_.substr(0, open));
      text_.remove_prefix(open + 1);
      const bool isComment = text_.starts_with("!--");
      const bool isData = text_.starts_with("![CDATA[");
      const std::string_view close = isComment ? "-->" : isData ? "]]>" : ">";
      const auto end = text_.find(close);
      if (end == std::string_view::npos) return true;  // incomplete; the parser refuses it
      const auto tag = text_.substr(0, end);
      text_.remove_prefix(end + close.size());
      if (isData) textLength_ += tag.size();
      if (isComment || isData) continue;  // the text continues after these
      addTag(tag);
      if (keys_.size() > kDeepestContainer + 1 || hasTooManyKeys_ || moves_ > mostMoves_) return false;
    }
  }

 private:
  static bool isContainer(std::string_view tag) {
    return tag.starts_with("dict") || tag.starts_with("array") || tag.starts_with("plist");
  }

  void addText(std::string_view text) {
    textLength_ += text.size();
    entities_ += static_cast<std::uint64_t>(std::ranges::count(text, '&'));
  }

  void addTag(std::string_view tag) {
    moves_ += entities_ * textLength_;
    entities_ = 0;
    textLength_ = 0;
    if (tag.starts_with("key") && ++keys_.back() > kMostKeys) hasTooManyKeys_ = true;
    if (isContainer(tag) && !tag.ends_with('/')) keys_.push_back(0);
    if (tag.starts_with('/') && isContainer(tag.substr(1)) && keys_.size() > 1) keys_.pop_back();
  }

  std::string_view text_;
  std::uint64_t mostMoves_;
  std::vector<std::size_t> keys_{0};  // per open container, the outermost first
  bool hasTooManyKeys_ = false;
  std::uint64_t moves_ = 0;  // bytes
  std::uint64_t entities_ = 0;
  std::uint64_t textLength_ = 0;
};

struct FreeTree {
  void operator()(void* tree) const { plist_free(tree); }
};
using Tree = std::unique_ptr<void, FreeTree>;

PropertyList convert(plist_t node);

PropertyList convertText(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return PropertyList(text == nullptr ? std::string() : std::string(text, length));
}

PropertyList convertData(plist_t node) {
  std::uint64_t length = 0;
  const char* data = plist_get_data_ptr(node, &length);
  return PropertyList(data == nullptr ? Bytes() : copyOf(viewOf({data, length})));
}

PropertyList convertArray(plist_t node) {
  PropertyList::Array array;
  plist_array_iter position = nullptr;
  plist_array_new_iter(node, &position);
  for (plist_t item = nullptr;;) {
    plist_array_next_item(node, position, &item);
    if (item == nullptr) break;
    array.push_back(convert(item));
  }
  std::free(position);
  return PropertyList(std::move(array));
}

PropertyList convertDictionary(plist_t node) {
  PropertyList::Dictionary dictionary;
  plist_dict_iter position = nullptr;
  plist_dict_new_iter(node, &position);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, position, &key, &item);
    const std::unique_ptr<char, decltype(&std::free)> owned(key, std::free);
    if (key == nullptr || item == nullptr) break;
    dictionary.emplace_back(key, convert(item));
  }
  std::free(position);
  return PropertyList(std::move(dictionary));
}

PropertyList convert(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return PropertyList(value != 0);
    }
    case PLIST_UINT: {
      std::uint64_t value = 0;
      plist_get_uint_val(node, &value);
      return PropertyList(static_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return PropertyList(value);
    }
    case PLIST_STRING: return convertText(node);
    case PLIST_DATA: return convertData(node);
    case PLIST_ARRAY: return convertArray(node);
    case PLIST_DICT: return convertDictionary(node);
    default: return {};
  }
}

}  // namespace

Outcome<PropertyList> PropertyList::read(ByteView bytes) {
  if (bytes.size() > kLargest) return refuse("property list is too large");
  // The parser needs a zero-terminated text; a mapped file isn't.
  const std::string text = textOf(bytes);
  const auto size = static_cast<std::uint32_t>(text.size());
  const bool isBinary = text.starts_with("bplist");
  const std::size_t mostValues = std::min(text.size() + 1000, 8 * kMostKeys);
  if (isBinary && !installer::isBoundedBinaryPropertyList(text, kDeepestContainer, mostValues))
    return refuse("binary property list is malformed or unfolds without bound");
  if (!isBinary && !XMLCensus(text).isBounded())
    return refuse("property list is nested too deeply or takes too long to read");
  plist_t parsed = nullptr;
  if (isBinary) plist_from_bin(text.c_str(), size, &parsed);
  if (!isBinary) plist_from_xml(text.c_str(), size, &parsed);
  const Tree tree(parsed);
  if (!tree) return refuse("property list can't be parsed");
  return convert(parsed);
}

std::optional<double> PropertyList::number() const {
  if (const auto* integer = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*integer);
  if (const auto* real = std::get_if<double>(&value_)) return *real;
  return std::nullopt;
}

const PropertyList* PropertyList::find(std::string_view key) const {
  const Dictionary* entries = dictionary();
  if (entries == nullptr) return nullptr;
  const auto found = std::ranges::find_if(*entries, [&](const auto& entry) { return entry.first == key; });
  return found == entries->end() ? nullptr : &found->second;
}

std::string PropertyList::textAt(std::string_view key) const {
  const PropertyList* value = find(key);
  return value != nullptr && value->text() != nullptr ? *value->text() : std::string();
}

}  // namespace lab
