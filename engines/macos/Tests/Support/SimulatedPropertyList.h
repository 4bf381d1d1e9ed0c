// Property lists, XML and binary.
#pragma once

#include "Platform/PropertyList.h"

namespace installer::test {

class SimulatedPropertyList : public PropertyList {
 public:
  Result<Json> parse(std::string_view bytes) override;
};

}  // namespace installer::test
