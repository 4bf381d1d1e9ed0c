#include "Models/IdentifierList.h"

#include <fmt/format.h>
#include <string_view>

#include "Models/AppInfo.h"

namespace installer {

std::string identifierList(const std::vector<AppInfo>& apps) {
  std::vector<std::string_view> values;
  for (const auto& app : apps) values.push_back(rawValue(app.id));
  return fmt::format("{}", fmt::join(values, ", "));
}

}  // namespace installer
