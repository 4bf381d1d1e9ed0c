#include "PropertyList.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListReader.h"

namespace lab {

Outcome<Json> readPropertyList(ByteView bytes) {
  const installer::PropertyListBounds bounds{.bytes = std::size_t{64} << 20U,
                                             .values = std::min<std::size_t>(bytes.size() + 1000, 2'000'000)};
  if (bytes.size() > bounds.bytes) return refuse("property list is too long");
  // The library needs a zero after the text; a mapped file has none.
  auto list = installer::readPropertyList(textOf(bytes), bounds);
  if (!list) return refuse("{}", list.error().localizedDescription);
  return *std::move(list);
}

}  // namespace lab
