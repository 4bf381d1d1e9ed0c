// Property lists, XML and binary. Any thread.
#pragma once

#include <string_view>

#include "Base/Error.h"
#include "Base/JSONReader.h"

namespace installer {

class PropertyList {
 public:
  virtual ~PropertyList() = default;

  // Dictionaries, arrays, strings, booleans, integers and reals as JSON; data as a JSON binary; dates as
  // seconds since 1970. Any malformed or over-deep input is `CocoaError::fileReadCorrupt`.
  [[nodiscard]] virtual Result<Json> parse(std::string_view bytes) = 0;
};

}  // namespace installer
