#include "diskimage/ResourceList.h"

#include <cstdlib>
#include <memory>

namespace lab {
namespace {

plist_t entryOf(const BlockTable& table, std::uint32_t number) {
  const Bytes bytes = table.bytes(number);
  plist_t entry = plist_new_dict();
  plist_dict_set_item(entry, "Attributes", plist_new_string("0x0050"));
  plist_dict_set_item(entry, "CFName", plist_new_string(table.name.c_str()));
  plist_dict_set_item(entry, "Data",
                      plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  // The driver map has the number -1, the partition map 0.
  plist_dict_set_item(entry, "ID", plist_new_string(std::to_string(static_cast<int>(number) - 1).c_str()));
  plist_dict_set_item(entry, "Name", plist_new_string(table.name.c_str()));
  return entry;
}

}  // namespace

std::string resourceList(std::span<const BlockTable> tables) {
  plist_t blocks = plist_new_array();
  for (std::uint32_t number = 0; const BlockTable& table : tables) {
    plist_array_append_item(blocks, entryOf(table, number++));
  }
  plist_t fork = plist_new_dict();
  plist_dict_set_item(fork, "blkx", blocks);
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "resource-fork", fork);
  return xmlOf(root);
}

std::string xmlOf(plist_t list) {
  const std::unique_ptr<void, decltype(&plist_free)> root{list, &plist_free};
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &text, &length);
  const std::unique_ptr<char, decltype(&std::free)> owner{text, &std::free};
  return text == nullptr ? std::string{} : std::string{text, length};
}

}  // namespace lab
