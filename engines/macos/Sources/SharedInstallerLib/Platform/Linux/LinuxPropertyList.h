// Property lists by libplist, behind bounds of our own.
#pragma once

#include "Platform/PropertyList.h"

namespace installer {

// Holds no state: any number may exist, on any thread.
class LinuxPropertyList : public PropertyList {
 public:
  // Integers are signed: the library doesn't tell one above 2^63-1 from a negative one. Text that isn't UTF-8
  // is as malformed as a missing tag. Beyond the limits of `PropertyListBounds` a list counts as malformed.
  Result<Json> parse(std::string_view bytes) override;
};

}  // namespace installer
