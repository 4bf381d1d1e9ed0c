// Property lists, XML and binary. Any thread.
#pragma once

#include <string_view>

#include "Base/Error.h"
#include "Base/JSONReader.h"

namespace installer {

class PropertyList {
 public:
  virtual ~PropertyList() = default;

  // Gives dictionaries, arrays, strings, booleans, integers and reals as JSON, data as a JSON binary, and
  // dates as seconds since 1970. Malformed or too deep input fails with `CocoaError::fileReadCorrupt`.
  [[nodiscard]] virtual Result<Json> parse(std::string_view bytes) = 0;
};

}  // namespace installer
