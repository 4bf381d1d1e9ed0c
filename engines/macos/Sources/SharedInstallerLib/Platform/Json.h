// The JSON-like value that property lists, configuration and metadata are read into. Declared only: a source
// that looks into a value includes <nlohmann/json.hpp>, and headers don't, because that costs seconds a
// source.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace installer {

using Json = nlohmann::json;

}  // namespace installer
