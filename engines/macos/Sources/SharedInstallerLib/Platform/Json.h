// The JSON-like value that property lists, configuration and metadata are read into.
#pragma once

#include <nlohmann/json.hpp>

namespace installer {

using Json = nlohmann::json;

}  // namespace installer
