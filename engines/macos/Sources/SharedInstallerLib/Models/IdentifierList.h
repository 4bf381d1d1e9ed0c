// The identifiers of some apps, as messages name them. Stateless; any thread.
#pragma once

#include <string>
#include <vector>

namespace installer {

struct AppInfo;

// In the order of `apps`: "brenna, tolvi".
std::string identifierList(const std::vector<AppInfo>& apps);

}  // namespace installer
