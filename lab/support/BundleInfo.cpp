#include "support/BundleInfo.h"

#include <cstdlib>
#include <memory>

#include "plist/plist.h"

#include "support/Files.h"

namespace lab {
namespace {

using Node = std::unique_ptr<void, decltype(&plist_free)>;

std::optional<std::string> stringOf(plist_t node) {
  if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
  char* text = nullptr;
  plist_get_string_val(node, &text);
  const std::unique_ptr<char, decltype(&std::free)> owner{text, &std::free};
  if (!owner) return std::nullopt;
  return std::string{text};
}

}  // namespace

std::optional<std::string> bundleString(const std::filesystem::path& bundle, const std::string& key) {
  const auto bytes = readFile(bundle / "Contents" / "Info.plist");
  if (!bytes || bytes->empty()) return std::nullopt;
  plist_t parsed = nullptr;
  plist_from_memory(bytes->data(), static_cast<std::uint32_t>(bytes->size()), &parsed);
  const Node root{parsed, &plist_free};
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
  return stringOf(plist_dict_get_item(root.get(), key.c_str()));
}

}  // namespace lab
