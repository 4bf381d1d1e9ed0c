// The value of `--apps` on the protocol road.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Models/AppIdentifier.h"

namespace installer {

// The identifiers in the order given, duplicates kept; an empty list means all apps. Absent when some piece
// names no app that this build offers.
std::optional<std::vector<AppIdentifier>> parseApps(const std::optional<std::string>& value);

// What `--apps` takes, in catalog order, for people.
std::string availableAppIds();

}  // namespace installer
