// The value of `--apps`, in both modes of the executable. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Base/Error.h"
#include "Models/AppInfo.h"

namespace installer {

// The identifiers in the order given, duplicates kept; an empty list means all apps. The error is the first
// piece that names no app of this build, trimmed and in lower case.
Expected<std::vector<AppIdentifier>, std::string> parseApps(std::string_view value);

// The values of `--apps` in catalog order, for messages.
std::string availableAppIds();

}  // namespace installer
