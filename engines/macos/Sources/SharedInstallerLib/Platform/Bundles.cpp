#include "Platform/Bundles.h"

#include <nlohmann/json.hpp>

namespace installer {

std::optional<std::string> Bundle::infoString(const std::string& key) const {
  if (infoDictionary == nullptr) return std::nullopt;
  const auto entry = infoDictionary->find(key);
  if (entry == infoDictionary->end() || !entry->is_string()) return std::nullopt;
  return entry->get<std::string>();
}

}  // namespace installer
